#!/usr/bin/python3
"""Has a real browser read what the resident helper writes, and compares that with the expected document.

usage: check.py [--break truncate|rule] chromium|firefox

The resident helper of build/linux runs on a machine of its own, with the policy beside this file. The browser runs our
small extension without a display; the extension posts what it has read. With --break the document is broken on its way:
cut off, or with another rule.

The exit code is 0 when the browser has read the expected document, 3 when it has read another one, 4 when it could read
none; 2 for wrong arguments, and 1 when the check did not get as far as that.
"""

import argparse
import contextlib
import difflib
import http.server
import json
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
BUILD = HERE.parent.parent / "build" / "linux"
PROGRAM = BUILD / "lumenar-url-protocol-launch-helper"

CHROMIUM_VERSION_FOLDER = "Google/Chrome/User Data/Default/Extensions/pgmkcoafbnjdeihlmkgobfajcpeidnhl/8.18.0_0"
FIREFOX_FOLDER = "Mozilla/Firefox/Profiles"
FIREFOX_ID = "url-rules@corvane-lumenar.x"

EXPECTED, FAILED, ANOTHER, UNREADABLE = 0, 1, 3, 4  # exit codes

LONGEST_WAIT = 120  # seconds; only there to fail

CHROMIUM_OPTIONS = [
    "--headless=new",
    "--no-sandbox",  # It refuses to run as root, and it is not what is looked at.
    "--disable-gpu",
    "--disable-dev-shm-usage",
    "--disable-background-networking",
    "--no-first-run",
    "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
    "--disable-features=DisableLoadExtensionCommandLineSwitch",
]

FIREFOX_PREFERENCES = {
    # The extension is taken from the profile at the start, unsigned, and is not asked about.
    "extensions.autoDisableScopes": 0,
    "extensions.startupScanScopes": 1,
    "xpinstall.signatures.required": False,
    # It reaches for nothing but this machine. Port 9 discards.
    "network.proxy.type": 1,
    "network.proxy.http": "127.0.0.1",
    "network.proxy.http_port": 9,
    "network.proxy.ssl": "127.0.0.1",
    "network.proxy.ssl_port": 9,
    "datareporting.policy.dataSubmissionEnabled": False,
}


class CheckFailed(Exception):
    """The check cannot tell what the browser reads."""


# ---- The resident helper on its machine. ----


class Machine:
    """A machine in a folder, with what the browsers and their extensions would have made on it."""

    def __init__(self, folder):
        self.drive = folder / "data" / "lumenar" / "machine" / "drive_c"
        self.environment = os.environ | {
            "XDG_DATA_HOME": str(folder / "data"),
            "XDG_RUNTIME_DIR": str(folder / "run"),
        }
        (folder / "data").mkdir()
        (folder / "run").mkdir(mode=0o700)
        self._run("standInRegedit", HERE / "policy.reg")
        data_folder = self._run("standInProbe", "data-folder").strip()
        self.data = self.drive / data_folder.removeprefix("C:\\").replace("\\", "/")
        self.version_folder = self.data / CHROMIUM_VERSION_FOLDER
        self.version_folder.mkdir(parents=True)
        self.firefox_folder = self.data / FIREFOX_FOLDER
        self.firefox_folder.mkdir(parents=True)

    def _run(self, name, *arguments):
        return subprocess.run([BUILD / "tests" / name, *arguments], env=self.environment, check=True,
                              timeout=LONGEST_WAIT, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True).stdout

    def run_resident(self):
        """The helper's window answers only after the files have been written."""
        with started([PROGRAM], self.environment) as resident:
            self._run("standInProbe", "await-resident")
            self._run("standInProbe", "end-resident")
            if resident.wait(LONGEST_WAIT) != 0:
                raise CheckFailed(f"the resident helper's exit code is {resident.returncode}")


@contextlib.contextmanager
def started(command, environment, **options):
    """A process that is gone at the end, with all that it has started."""
    process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, start_new_session=True, **options)
    try:
        yield process
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def break_document(file, how):
    text = file.read_text()
    broken = text[: len(text) * 2 // 3] if how == "truncate" else text.replace("intranet", "extranet")
    if broken == text:
        raise CheckFailed(f"{file.name} could not be broken")
    file.write_text(broken)


# ---- The browsers. Each gets the extension and the document, and starts with a home of its own. ----


def lay_extension(folder, address):
    shutil.copytree(HERE / "extension", folder, dirs_exist_ok=True)
    (folder / "reportTo.json").write_text(json.dumps(address))


def prepare_chromium(machine, home, address, broken):
    lay_extension(machine.version_folder, address)
    if broken:
        break_document(machine.version_folder / "data.json", broken)
    return ["chromium", *CHROMIUM_OPTIONS, f"--user-data-dir={home / 'profile'}",
            f"--load-extension={machine.version_folder}", "about:blank"]


def prepare_firefox(machine, home, address, broken):
    # On Windows a registry key leads to the file wherever it lies; here the browser looks for it in this folder.
    manifest = home / ".mozilla" / "managed-storage" / f"{FIREFOX_ID}.json"
    manifest.parent.mkdir(parents=True)
    shutil.copy(machine.firefox_folder / "data.json", manifest)
    if broken:
        break_document(manifest, broken)
    profile = home / "profile"
    lay_extension(home / "extension", address)
    (profile / "extensions").mkdir(parents=True)
    with zipfile.ZipFile(profile / "extensions" / f"{FIREFOX_ID}.xpi", "w") as package:
        for file in (home / "extension").iterdir():
            package.write(file, file.name)
    (profile / "user.js").write_text("".join(
        f"user_pref({json.dumps(name)}, {json.dumps(value)});\n" for name, value in FIREFOX_PREFERENCES.items()))
    return ["firefox-esr", "--headless", "--no-remote", "--profile", str(profile), "about:blank"]


PREPARE = {"chromium": prepare_chromium, "firefox": prepare_firefox}


class Reports:
    """Where the extension posts what it has read."""

    def __init__(self):
        self.events = queue.SimpleQueue()
        events = self.events

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                self.send_response(204)
                self.end_headers()
                events.put(json.loads(body))

            def log_message(self, *_):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.address = f"http://127.0.0.1:{self._server.server_port}/"
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def await_report(self, browser):
        """The first report; fails when the browser ends before there is one."""
        threading.Thread(target=lambda: (browser.wait(), self.events.put(None)), daemon=True).start()
        try:
            report = self.events.get(timeout=LONGEST_WAIT)
        except queue.Empty:
            raise CheckFailed(f"the extension reported nothing in {LONGEST_WAIT} s") from None
        if report is None:
            raise CheckFailed(f"the browser ended with exit code {browser.returncode} before a report")
        return report


def report_of(name, machine, folder, broken):
    home = folder / "home"
    (home / "tmp").mkdir(parents=True)
    reports = Reports()
    command = PREPARE[name](machine, home, reports.address, broken)
    environment = {key: value for key, value in os.environ.items() if not key.startswith(("XDG_", "MOZ_"))}
    environment |= {"HOME": str(home), "TMPDIR": str(home / "tmp")}
    log = folder / "browser.log"
    with log.open("wb") as output:
        with started(command, environment, stdout=output, stderr=subprocess.STDOUT) as browser:
            try:
                return reports.await_report(browser)
            except CheckFailed as failure:
                raise CheckFailed(f"{failure}; it said:\n{log.read_text(errors='replace')}") from None


# ---- What is expected. ----


def lines_of(document):
    """Texts are compared, as Python takes 1 and true for the same."""
    return json.dumps(document, indent=2, sort_keys=True, ensure_ascii=False).splitlines()


def judge(name, report):
    if "document" not in report:
        print(f"{name} cannot read the document: {report['error']}")
        return UNREADABLE
    expected = json.loads((HERE / "expected" / f"{name}.json").read_text())
    difference = list(difflib.unified_diff(lines_of(expected), lines_of(report["document"]), "expected",
                                           f"as {name} reads it", lineterm=""))
    print("\n".join(difference) or f"{name} reads the expected document")
    return ANOTHER if difference else EXPECTED


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("browser", choices=PREPARE)
    arguments.add_argument("--break", choices=["truncate", "rule"], dest="broken")
    chosen = arguments.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(FAILED))
    with tempfile.TemporaryDirectory(prefix="lumenar-browser-", ignore_cleanup_errors=True) as folder:
        folder = pathlib.Path(folder)
        try:
            machine = Machine(folder)
            machine.run_resident()
            return judge(chosen.browser, report_of(chosen.browser, machine, folder, chosen.broken))
        except (CheckFailed, OSError, subprocess.SubprocessError) as failure:
            print(f"{chosen.browser}: {failure}", file=sys.stderr)
            return FAILED


sys.exit(main())
