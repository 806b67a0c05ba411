# shellcheck shell=bash disable=SC2154
# What ./check --coverage counts, reports and demands. Sourced by it after common.sh; docs/coverage.md tells why.

# The rooms that make up the plug-in.
coverage_rooms=(zoiohandler zoiohandler/vyrnclient zoapi qapi zovyrnsdk)
# What has to be reached of all of them together, in percent.
least_lines=95
least_branches=90

# judge_coverage FILES.CSV LINES BRANCHES: prints a table by room from gcovr's table by file, and fails where there is
# too little in all, or nothing at all to judge.
judge_coverage() {
  awk -F, -v least_lines="$2" -v least_branches="$3" -v rooms="${coverage_rooms[*]}" '
    function percent(part, all) { return all > 0 ? 100 * part / all : 100 }
    # Rounded down, so that 94.96 does not look like 95.
    function shown(part, all) { return sprintf("%.1f", int(10 * percent(part, all)) / 10) }
    function row(name, r) {
      printf "%-24s %8d %8d %6s %10d %8d %6s\n", name, lines[r], hitLines[r], shown(hitLines[r], lines[r]),
        branches[r], hitBranches[r], shown(hitBranches[r], branches[r])
    }
    function count(r) {
      lines[r] += $column["line_total"]; hitLines[r] += $column["line_covered"]
      branches[r] += $column["branch_total"]; hitBranches[r] += $column["branch_covered"]
    }
    BEGIN { number = split(rooms, room, " ") }
    NR == 1 { for (i = 1; i <= NF; ++i) column[$i] = i; next }
    {
      # The innermost room that the file lies in.
      best = ""
      for (i = 1; i <= number; ++i)
        if (index($1, room[i] "/") == 1 && length(room[i]) > length(best)) best = room[i]
      if (best == "") { printf "%s is in none of the rooms.\n", $1; strange = 1; next }
      count(best); count("all")
    }
    END {
      printf "%-24s %8s %8s %6s %10s %8s %6s\n", "room", "lines", "run", "%", "branches", "taken", "%"
      for (i = 1; i <= number; ++i) {
        row(room[i], room[i])
        if (!lines[room[i]]) { printf "Nothing was counted in %s.\n", room[i]; strange = 1 }
      }
      row("all", "all")
      low = 0
      if (percent(hitLines["all"], lines["all"]) < least_lines) {
        printf "Fewer than %s %% of the lines were run.\n", least_lines; low = 1
      }
      if (percent(hitBranches["all"], branches["all"]) < least_branches) {
        printf "Fewer than %s %% of the branches were taken.\n", least_branches; low = 1
      }
      exit low || strange
    }' "$1"
}

# report_coverage: what the tests of the coverage preset left behind, as files.csv and pages in build/coverage/report.
report_coverage() {
  local report=$root/build/coverage/report room filters=()
  for room in "${coverage_rooms[@]}"; do
    filters+=(--filter "$root/$room/")
  done
  rm -rf -- "$report"
  mkdir -p -- "$report" || return
  gcovr --root "$root" "${filters[@]}" -j "$(job_count)" \
    --exclude-throw-branches --exclude-unreachable-branches \
    --csv "$report/files.csv" --html-details "$report/index.html" "$root/build/coverage"
}

# What was counted before, perhaps of other code, is no part of this count; neither are files that are no longer built.
forget_coverage() {
  local notes
  find "$root/build/coverage" -name '*.gcda' -delete
  find "$root/build/coverage" -name '*.gcno' -print0 | while IFS= read -r -d '' notes; do
    [ -f "${notes%.gcno}.o" ] || rm -- "$notes"
  done
}

check_coverage() {
  configure coverage -DZOIO_BUILD_TESTS=ON
  build coverage
  forget_coverage
  run_tests coverage
  if ! stage "coverage: report" coverage-report.log report_coverage; then
    show_log_end
    fail "gcovr failed; the log is $stage_log."
  fi
  judge_coverage "$root/build/coverage/report/files.csv" "$least_lines" "$least_branches" ||
    fail "too little is covered; $root/build/coverage/report/index.html shows what is not."
  say "$root/build/coverage/report/index.html shows it line by line."
}
