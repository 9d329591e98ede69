#!/usr/bin/python3
"""The simulator's page in a real headless Chromium: a demo run, the video, a failed run.

usage: page_test.py BUILD_DIR OUT_DIR   (screenshots and logs go to OUT_DIR)
Exits 77 (skipped) when Chromium, its driver or Selenium is not installed.
"""
import json, os, shutil, signal, subprocess, sys, tempfile, time, urllib.error, urllib.request

build, out = sys.argv[1], sys.argv[2]
source = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
driver_path, browser = shutil.which("chromedriver"), shutil.which("chromium")
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.support.ui import Select
except ImportError:
    browser = None
if not driver_path or not browser:
    print("SKIPPED: needs chromium, chromium-driver and python3-selenium (scripts/test installs them)")
    sys.exit(77)

os.makedirs(out, exist_ok=True)
work = tempfile.mkdtemp(prefix="vyxpage.")
# Installs slow enough for more than one progress report, fast enough for a short test.
scenario = os.path.join(work, "scenario.json")
with open(scenario, "w") as f:
    json.dump({"extends": os.path.join(source, "examples/scenarios/fresh-device.json"),
               "installService": {"durationMs": 14000}}, f)

bus = subprocess.run(["dbus-daemon", "--session", "--fork", "--print-address=1", "--print-pid=1"],
                     capture_output=True, text=True, check=True).stdout.split()
env = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=bus[0], VYXSTAGED_ROOT=os.path.join(work, "root"))
procs = []


def start(name, *args):
    log = open(os.path.join(out, name + ".log"), "w")
    procs.append(subprocess.Popen([os.path.join(build, name), *args], env=env, stdout=log,
                                  stderr=subprocess.STDOUT))


def wait_for(what, condition, limit=60):
    end = time.time() + limit
    while time.time() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.1)
    raise AssertionError("gave up waiting for " + what)


page = None
try:
    start("vyxsim", "--web", scenario)
    url = wait_for("the page's address", lambda: next((l.split()[-1] for l in open(
        os.path.join(out, "vyxsim.log")) if l.startswith("vyxsim: page ")), None), 15)
    own = url.rstrip("/")

    # Only the page itself may drive the device, and bad input is answered, not obeyed.
    for path, body, origin, raw, status in [
            ("api/demo", {"state": True}, "http://evil.example", None, 403),
            ("api/demo", {"state": True}, "null", None, 403),
            ("api/demo", {"state": "yes"}, own, None, 400),
            ("api/display", None, own, b"\xff{not json", 400),
            ("api/network", {"network": "wifi", "extra": 1}, own, None, 400),
            ("api/fault", {"store": "on fire"}, own, None, 400),
            ("api/nothing", {}, own, None, 404)]:
        request = urllib.request.Request(url + path, data=raw or json.dumps(body).encode(),
                                         headers={"Origin": origin, "Content-Type": "application/json"})
        try:
            urllib.request.urlopen(request).close()
            got, answer = 200, {}
        except urllib.error.HTTPError as refused:
            got, answer = refused.code, json.load(refused)
        assert got == status and answer.get("error"), (path, origin, got, answer)

    options = webdriver.ChromeOptions()
    options.binary_location = browser
    for arg in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                "--window-size=1400,1000"):
        options.add_argument(arg)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    page = webdriver.Chrome(service=Service(driver_path), options=options)
    page.get(url)
    start("vyxstaged")  # only now: it ends itself after ten idle seconds, and Chromium is slow to start
    by_id = lambda name: page.find_element("id", name)
    shown = lambda name: by_id(name).is_displayed()
    shot = lambda name: page.save_screenshot(os.path.join(out, name + ".png"))
    wait_for("the daemon on the bus", lambda: by_id("daemon").text == "on the bus", 20)

    by_id("demo-on").click()
    percents = []
    def climbing():
        text = by_id("popup").get_attribute("data-percent")  # set for "continueInstall" only
        if text and (not percents or int(text) != percents[-1]):
            percents.append(int(text))
            time.sleep(1)  # the bar slides to its new width
            shot("1-installing")
        return shown("demo-app")
    wait_for("the demonstration", climbing, 90)
    assert len(percents) >= 2 and max(percents) > percents[0], percents
    assert by_id("demo-state").text == "on", by_id("demo-state").text
    shot("2-demonstration")

    page.find_element("css selector", '#display-seg [data-display="off"]').click()
    wait_for("the video", lambda: shown("video"), 20)
    shot("3-video")

    page.find_element("css selector", '#display-seg [data-display="on"]').click()
    Select(by_id("store-fault")).select_by_value("down")
    wait_for("the store down", lambda: by_id("store-state").get_attribute("textContent") == "down", 10)
    by_id("verify").click()
    wait_for("the failure pop-up",
             lambda: shown("popup") and by_id("popup").get_attribute("data-message") == "failConnect", 60)
    shot("4-store-down")

    errors = [e for e in page.get_log("browser") if e["level"] == "SEVERE"]
    assert not errors, errors
    print("page: progress seen at", percents, "; screenshots in", out)
finally:
    if page:
        page.quit()
    for proc in reversed(procs):
        proc.send_signal(signal.SIGINT if proc is procs[-1] else signal.SIGTERM)
        proc.wait(30)
    os.kill(int(bus[1]), signal.SIGTERM)
    shutil.rmtree(work, ignore_errors=True)
# The simulator must have ended cleanly: under the sanitizers a leak or a fault shows here.
assert procs[0].returncode == 0, "vyxsim ended with status %d" % procs[0].returncode
