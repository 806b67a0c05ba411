# shellcheck shell=bash disable=SC2154
# What ./run and ./check share. Sourced by them, from the root of the project; needs what every Debian has.

# The caller's settings must not decide what is built or how it is tested.
unset CC CXX CFLAGS CXXFLAGS CPPFLAGS LDFLAGS CMAKE_GENERATOR CMAKE_TOOLCHAIN_FILE CMAKE_BUILD_TYPE DESTDIR CDPATH
unset "${!CTEST_@}" "${!GTEST_@}"

root=$PWD
logs=$root/build/logs

say() { printf '%s\n' "$*"; }

fail() {
  printf '%s: %s\n' "$program" "$*" >&2
  exit 1
}

usage_error() {
  printf '%s: %s\nTry %s --help.\n' "$program" "$*" "$program" >&2
  exit 2
}

# One at a time in this folder: two builds of one preset would disturb each other. Released when the script ends.
take_turn() {
  mkdir -p -- "$logs" || fail "the folder $root/build cannot be written."
  exec 9>"$root/build/.turn" || fail "the folder $root/build cannot be written."
  if ! flock -n 9; then
    say "Another ./run or ./check is at work in this folder; waiting for it."
    flock 9
  fi
}

# As many jobs as there are cores, but no more than the memory holds compilers.
job_count() {
  local cores memory
  cores=$(nproc)
  memory=$(awk '/^MemAvailable:/ { print int($2 / 1500000) }' /proc/meminfo 2>/dev/null)
  if [ -n "$memory" ] && [ "$memory" -lt "$cores" ]; then
    cores=$((memory > 0 ? memory : 1))
  fi
  say "$cores"
}

# Shows the last line of what it reads beside a stage's name.
show_progress() {
  local line room
  room=$(($(tput cols 2>/dev/null || say 80) - 2))
  while IFS= read -r line; do
    line="$1  ${line//[[:cntrl:]]/}"
    printf '\r\033[K%s' "${line:0:room}"
  done
  printf '\r\033[K'
}

# stage NAME LOG COMMAND...: runs the command with its output in build/logs/LOG, and prints the stage's name and the
# time that it took. Gives the command's status; stage_log is then the log's full name.
stage() {
  local name=$1 start status
  stage_log=$logs/$2
  shift 2
  start=$(date +%s%N)
  if [ -t 1 ]; then
    "$@" </dev/null 2>&1 9>&- | tee -- "$stage_log" | show_progress "$name"
    status=${PIPESTATUS[0]}
    printf '%-48s' "$name"
  else
    printf '%-48s' "$name"
    "$@" </dev/null >"$stage_log" 2>&1 9>&-
    status=$?
  fi
  printf ' %7s s%s\n' "$(awk -v ns="$(($(date +%s%N) - start))" 'BEGIN { printf "%.1f", ns / 1e9 }')" \
    "$([ "$status" -eq 0 ] || printf '  FAILED')"
  return "$status"
}

# What a failed stage has to say for itself.
show_log_end() {
  printf '\n' >&2
  tail -n "${1:-40}" -- "$stage_log" >&2
  printf '\n' >&2
}

is_installed() {
  [ "$(dpkg-query -W -f '${db:Status-Status}' -- "$1" 2>/dev/null)" = installed ]
}

# need PACKAGE...: installs those of the packages that are not there.
need() {
  local package missing=() as_root=()
  command -v apt-get >/dev/null ||
    fail "this machine has no apt-get; the scripts are made for Debian 12. CONTRIBUTING.md says what a build needs."
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return
  fi
  say "Not installed yet: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "only root may install them, and there is no sudo. As root: apt-get install ${missing[*]}"
    sudo true || fail "sudo refused. As root: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi
  as_root+=(env DEBIAN_FRONTEND=noninteractive)
  # A list that cannot be fetched (of some other source, perhaps) may still leave everything that is needed.
  stage "apt-get update" apt-update.log "${as_root[@]}" apt-get -q update ||
    say "Some package lists could not be fetched; see $stage_log."
  if ! stage "apt-get install (${#missing[@]} packages)" apt-install.log "${as_root[@]}" \
    apt-get -q -y --no-install-recommends -o DPkg::Lock::Timeout=300 install "${missing[@]}"; then
    show_log_end 15
    fail "the packages could not be installed; the log is $stage_log."
  fi
}

# configure PRESET [ARGUMENT...]
configure() {
  local preset=$1 cache home
  cache=$root/build/$preset/CMakeCache.txt
  shift
  if [ -f "$cache" ]; then
    home=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$cache")
    # A project that was moved or copied brings along a build that belongs elsewhere.
    [ "$home" = "$root" ] || rm -rf -- "$root/build/$preset"
  fi
  if ! stage "$preset: configure" "$preset-configure.log" cmake --preset "$preset" "$@"; then
    show_log_end
    fail "configuring the $preset preset failed; the log is $stage_log."
  fi
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  if ! stage "$preset: build" "$preset-build.log" \
    cmake --build "$root/build/$preset" -j "$(job_count)" ${1:+--target "$@"}; then
    grep -n -m 5 -E 'error:|FAILED:|undefined reference' -- "$stage_log" >&2
    show_log_end
    fail "building the $preset preset failed; the log is $stage_log."
  fi
}
