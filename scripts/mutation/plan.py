"""Where mutants are looked for, which tests decide about them, and where the work is done."""

import os
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
WORK = os.path.join(ROOT, "build", "mutate")
TREE = os.path.join(WORK, "tree")
BUILD = os.path.join(WORK, "build")
SURVIVORS = os.path.join(ROOT, "scripts", "survivors.txt")
ORDERS = os.path.join(ROOT, "scripts", "orders.txt")

# Where mutants are looked for, and by which rules.
EVERY_RULE = "text char level number bool compare drop swap order".split()
SOURCES = [
    ("zoiohandler/*.cpp", EVERY_RULE),
    ("zoiohandler/*.h", EVERY_RULE),
    ("zoapi/*.cpp", EVERY_RULE),
    ("zoapi/*.h", EVERY_RULE),
    ("qapi/status.cpp", EVERY_RULE),
    ("qapi/address.cpp", EVERY_RULE),
    ("zovyrnsdk/link/limits.h", ["number"]),
    ("zovyrnsdk/link/backoff.h", ["number", "compare", "drop"]),
]
# Ranks only have to rise; lockrank tests hold their order.
EXCEPT = ["zoapi/threads/lockranks.h"]

# The test programs that decide, by folder or file: the likeliest first. All of them have to pass for a survivor.
INNER = """vyrnclient_log_test vyrnclient_items_test vyrnclient_values_test vyrnclient_subscriptions_test
    vyrnclient_methods_test vyrnclient_cache_test vyrnclient_instance_test vyrnclient_simulator_test
    vyrnclient_simulated_text_test vyrnclient_simulator_random_test vyrnclient_faults_test
    plugin_logging_test plugin_items_test plugin_subscriptions_test plugin_methods_test plugin_arguments_test
    plugin_threads_test vyrnclient_memory_test vyrnclient_simulator_work_test model_test simulator_model_test""".split()
OUTER = "plugin_arguments_test plugin_instance_table_test plugin_loading_test plugin_items_test".split()
OVER_THE_WIRE = """wire_sensor_manager_test wire_suite_test wire_connect_test wire_missing_items_test
    wire_subscription_test wire_values_test wire_mute_test wire_ending_test wire_newest_value_test wire_flood_test""".split()
DECIDERS = [
    ("zoiohandler/vyrnclient/*sensormanager.*", OVER_THE_WIRE[:4] + INNER + OVER_THE_WIRE[4:]),
    ("zoiohandler/vyrnclient/retryreads.*", ["vyrnclient_items_test"] + OVER_THE_WIRE[:4] + INNER + OVER_THE_WIRE[4:]),
    ("zoiohandler/vyrnclient/*", INNER + OVER_THE_WIRE[:4]),
    ("zoiohandler/*", OUTER + INNER),
    ("zoapi/*", ["zoapi_tests", "zoapi_memory_tests", "vyrnclient_faults_test"] + INNER[:7]),
    ("qapi/*", ["qapi_tests", "zoapi_tests"] + INNER[:7]),
    ("zovyrnsdk/*", ["sdk_state", "sdk_link", "sdk_hostile", "wire_sdk_faults_test"] + OVER_THE_WIRE),
]

# Needs a process of its own, which ctest gives each test and a whole program does not: a stack that an earlier thread has
# left behind makes a start succeed that has to fail.
LEFT_OUT = {"qapi_tests": "Thread.StartFailsWhenTheSystemHasNoThreadToGive"}


def list_files():
    """What git would commit; without git, everything but what was built."""
    try:
        done = subprocess.run(["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard"], check=True,
                              capture_output=True, text=True)
        found = sorted({path for path in done.stdout.splitlines() if os.path.isfile(os.path.join(ROOT, path))})
    except (OSError, subprocess.CalledProcessError):
        found = []
    return found or walk_files()


def walk_files():
    found = []
    for folder, folders, files in os.walk(ROOT):
        folders[:] = [name for name in folders if name not in ("build", ".git", ".cache")]
        found += [os.path.relpath(os.path.join(folder, name), ROOT) for name in files]
    return sorted(found)


def say(text):
    print(text, flush=True)
