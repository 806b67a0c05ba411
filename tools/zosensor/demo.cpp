#include "tools/zosensor/demo.h"

namespace ZoSensor {

std::string_view DemoResources() {
  static constexpr std::string_view Text = R"json({
  "comment": "A small machine: a drive with its set-points, an oven, vibration, counters, a door, and methods.",
  "name": "demo machine",
  "running": true,
  "rate_hz": 10,
  "resources": {
    "/machine/info": {
      "comment": "Never changes, and cannot be written.",
      "content": {"model": "DM-200", "serial": 18446744073709551615, "built": "2021-03-04", "options": ["oven", "door"]}
    },
    "/machine/setpoints": {
      "comment": "Write here and watch /machine/drive and /machine/oven follow.",
      "content": {"speed": 1500.0, "temperature": 180.0, "mode": "auto", "enabled": true, "batch": 12},
      "writable": true,
      "integers": ["/batch"]
    },
    "/machine/drive": {
      "content": {
        "speed": 0.0,
        "torque": 0.0,
        "angle": 0.0,
        "status": {"running": true, "text": "starting", "load": {"percent": 0}}
      },
      "waves": {
        "/speed": {"wave": "follow", "source": "/machine/setpoints", "at": "/speed", "lag_s": 1.5, "ripple": 2.0, "digits": 1},
        "/torque": {"wave": "walk", "from": 20, "to": 80, "period_s": 15, "digits": 2},
        "/angle": {"wave": "ramp", "from": 0, "to": 360, "period_s": 4, "digits": 1},
        "/status/running": {"wave": "cycle", "values": [true, true, true, false], "each_s": 5},
        "/status/text": {"wave": "cycle", "values": ["running", "running", "ramping", "idle"], "each_s": 5},
        "/status/load/percent": {"wave": "triangle", "from": 10, "to": 95, "period_s": 20, "integer": true}
      }
    },
    "/machine/oven": {
      "rate_hz": 2,
      "content": {"temperature": 20.0, "heating": 0, "zones": [20.0, 20.0, 20.0], "limits": {"low": 150.0, "high": 220.0}},
      "writable": ["/limits"],
      "waves": {
        "/temperature": {"wave": "follow", "source": "/machine/setpoints", "at": "/temperature", "start": 20, "lag_s": 20, "ripple": 0.2, "digits": 2},
        "/heating": {"wave": "square", "from": 0, "to": 1, "period_s": 8, "duty": 0.7, "integer": true},
        "/zones": {"wave": "sine", "offset": 180, "amplitude": 3, "period_s": 30, "count": 3, "spacing_s": 10, "digits": 2}
      }
    },
    "/machine/vibration": {
      "comment": "A hundred values a second, with a picture of the next sixteen.",
      "rate_hz": 100,
      "content": {"x": 0.0, "noise": 0.0, "window": []},
      "waves": {
        "/x": {"wave": "sine", "amplitude": 2.5, "period_s": 0.5},
        "/noise": {"wave": "noise", "from": -0.1, "to": 0.1},
        "/window": {"wave": "sine", "amplitude": 2.5, "period_s": 0.5, "count": 16, "spacing_s": 0.01, "digits": 3}
      }
    },
    "/machine/counters": {
      "comment": "The total lies beyond what a signed number holds.",
      "content": {"total": 9223372036854775808, "parts": 0, "shift": {"good": 0, "bad": 0}},
      "waves": {
        "/total": {"wave": "counter", "start": 9223372036854775808},
        "/parts": {"wave": "counter", "modulo": 1000},
        "/shift/good": {"wave": "counter", "step": 3},
        "/shift/bad": {"wave": "walk", "from": 0, "to": 9, "period_s": 60, "integer": true}
      }
    },
    "/machine/door": {
      "comment": "Cannot be streamed; tells its changes to subscribers.",
      "stream": false,
      "rate_hz": 1,
      "content": {"open": false, "state": "closed"},
      "waves": {
        "/open": {"wave": "cycle", "values": [false, true], "each_s": 4},
        "/state": {"wave": "cycle", "values": ["closed", "open"], "each_s": 4}
      }
    },
    "/machine/recipe": {
      "comment": "Arrays and nested objects to write to.",
      "content": {
        "name": "bread",
        "steps": [
          {"name": "heat", "minutes": 5, "temperature": 120.0},
          {"name": "bake", "minutes": 35, "temperature": 190.0}
        ],
        "weights": [1.0, 0.5, 0.25],
        "note": null
      },
      "writable": true,
      "integers": ["/steps/0/minutes", "/steps/1/minutes"]
    },
    "/machine/move": {
      "comment": "Call it with set-points, such as {\"speed\": 900}.",
      "call": {"merge_into": "/machine/setpoints", "result": {"accepted": true}}
    },
    "/machine/reset": {
      "comment": "Takes a moment.",
      "call": {
        "set": {"/machine/setpoints": {"speed": 1500.0, "temperature": 180.0, "mode": "auto", "enabled": true}},
        "delay_ms": 200,
        "result": {"reset": true}
      }
    },
    "/machine/echo": {
      "comment": "Answers what it is called with.",
      "call": {"echo": true}
    },
    "/machine/late": {
      "comment": "Appears after ten seconds.",
      "appears_after_s": 10,
      "content": {"value": 0.0},
      "waves": {"/value": {"wave": "sine", "amplitude": 10, "period_s": 6, "digits": 3}}
    },
    "/machine/fleeting": {
      "comment": "Vanishes after thirty seconds.",
      "vanishes_after_s": 30,
      "content": {"value": 0},
      "waves": {"/value": {"wave": "counter"}}
    }
  }
}
)json";
  return Text;
}

}  // namespace ZoSensor
