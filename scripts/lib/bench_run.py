#!/usr/bin/env python3
"""Helpers of scripts/bench-run.

  bench_run.py scenario TO_INSTALL INSTALLED   a vyxsim scenario, on standard output
  bench_run.py tally RECORDS STORE_URL DIR     what vyxsim recorded of the run, as NAME=VALUE
                                               lines, and DIR/store.curl replaying its store
                                               requests
"""
import json
import os
import sys

DEMO = ["com.velto.app.vyxcore", "com.velto.app.vyx", "com.velto.vyx.v001"]


def scenario(to_install, installed):
    """Demo mode on, INSTALLED packages of the system image (so nothing is deleted) and a store
    offering TO_INSTALL packages, all named in the configuration, each installed at once."""
    extra = [f"com.velto.bench.p{i:03d}" for i in range(max(0, to_install - len(DEMO)))]
    offered = (DEMO + extra)[:to_install]
    return {
        "name": f"bench-{to_install}-of-{installed}",
        "description": f"{to_install} packages to install, {installed} installed already",
        "device": {
            "preferences": {"vyxStageRunning": True, "vyxStageDetails": {}},
            "locale": {"languageCode": "en", "countryCode": "us"},
            "installed": [{"id": f"com.velto.system.s{i:04d}", "version": "1.0.0"}
                          for i in range(installed)],
        },
        "store": {
            "path": "/bazaro/",
            "catalogue": [{"id": p, "version": "1.0.0", "size": 1048576, "catalogId": 9000 + n}
                          for n, p in enumerate(offered)],
        },
        "installService": {"durationMs": 1, "statusForm": "list"},
        "files": {
            "/usr/velto/vyxstage/vyxstage.conf":
                "[IPKG]\nINSTALL=" + ";".join(offered) + ";\nRUN=com.velto.app.vyx\n",
        },
    }


def tally(records_path, store_url, out_dir):
    """The run lies between the marker call to com.velto.sim/device made just before
    verifyPackages and the demonstration application's launch."""
    with open(records_path) as f:
        records = json.load(f)["records"]
    start = max(r["seq"] for r in records
                if r["kind"] == "call" and r.get("service") == "com.velto.sim"
                and r.get("method") == "device")
    end = min(r["seq"] for r in records
              if r["kind"] == "launch" and r["id"] == DEMO[1] and r["seq"] > start
              and r["action"] in ("reboot", "initialize"))
    run = [r for r in records if start < r["seq"] <= end]
    calls = [r for r in run if r["kind"] == "call"]
    store = [r for r in calls if r["service"] == "store"]
    bus = [r for r in calls if r["service"] not in ("store", "com.velto.sim")]
    installs = [r for r in bus if r["method"] == "install"]
    base = store_url.split("/", 3)
    transfers = []
    for n, r in enumerate(store):
        body = os.path.join(out_dir, f"store-{n}.body")
        with open(body, "w") as f:
            f.write(r["payload"])
        transfers.append(f'url = "{base[0]}//{base[2]}{r["category"]}"\n'
                         f'data-binary = "@{body}"\noutput = "/dev/null"\n'
                         'write-out = "%{time_total}\\n"\n')
    with open(os.path.join(out_dir, "store.curl"), "w") as curl:
        curl.write("next\n".join(transfers))
    values = {
        "store_calls": len(store),
        "store_details": sum(1 for r in store if r["method"] == "appDetail_ext2"),
        "bus_calls": len(bus),
        "status_polls": sum(1 for r in bus if r["method"] == "status"),
        "install_requests": len(installs),
        "popups": sum(1 for r in run if r["kind"] == "popup"),
        "last_install_to_launch": "%.3f" % (run[-1]["time"] - installs[-1]["time"])
        if installs else "0",
    }
    for name, value in values.items():
        print(f"{name}={value}")


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "scenario":
        json.dump(scenario(int(sys.argv[2]), int(sys.argv[3])), sys.stdout, indent=1)
        print()
    elif len(sys.argv) == 5 and sys.argv[1] == "tally":
        tally(*sys.argv[2:])
    else:
        sys.exit(__doc__)
