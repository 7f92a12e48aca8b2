"""Installs a build, moves it away and uses it as a stranger would.   install_test.py BUILD"""

import os
import re
import selectors
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
BUILD = Path(sys.argv.pop()).resolve()
CMAKE = os.environ.get("CMAKE", "cmake")
CXX = os.environ.get("CXX", "c++")
EXAMPLES = ("reporter", "listener")
NOTES = [f"install_{note}.txt" for note in ("manifest", "directories", "destdir")]
PATIENCE = 100  # seconds; only a failure takes so long
WORK = Path(tempfile.mkdtemp(prefix="pelto-install-")).resolve()
ENVIRONMENT = {**os.environ, "PELTO_PHONE": str(WORK / "phone")}


def run(*command, **options):
    options = {"env": ENVIRONMENT, "stdin": subprocess.DEVNULL, **options}
    if "input" in options:
        del options["stdin"]
    return subprocess.run(
        [str(word) for word in command], capture_output=True, text=True, timeout=PATIENCE, **options
    )


def output(*command, **options):
    done = run(*command, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: exit code {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def install(prefix):
    output(CMAKE, "--install", BUILD, "--prefix", prefix)


def setUpModule():
    """Keeps what the developer's own installation has noted in the build folder."""
    for name in NOTES:
        if (BUILD / name).exists():
            shutil.copy(BUILD / name, WORK / name)
        (BUILD / name).unlink(missing_ok=True)


def tearDownModule():
    for name in NOTES:
        (BUILD / name).unlink(missing_ok=True)
        if (WORK / name).exists():
            shutil.copy(WORK / name, BUILD / name)
    shutil.rmtree(WORK)


class Moved(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        install(WORK / "made")
        cls.prefix = (WORK / "made").rename(WORK / "moved")
        cls.include = cls.prefix / "include/pelto"
        cls.built = {"cmake": WORK / "cmake", "pkg-config": WORK / "by-hand"}
        cls.addClassCleanup(run, cls.prefix / "bin/pelto", "phone", "stop", "--force")
        with ThreadPoolExecutor() as both:
            for built in [both.submit(cls.build_with_cmake), both.submit(cls.build_by_hand)]:
                built.result()

    @classmethod
    def build_with_cmake(cls):
        folder = cls.built["cmake"]
        found = [f"-DCMAKE_PREFIX_PATH={cls.prefix}", f"-DCMAKE_CXX_COMPILER={CXX}"]
        output(CMAKE, "-S", SOURCE / "examples", "-B", folder, *found)
        output(CMAKE, "--build", folder)

    @classmethod
    def build_by_hand(cls):
        cls.built["pkg-config"].mkdir()
        environment = {**ENVIRONMENT, "PKG_CONFIG_PATH": str(cls.prefix / "lib/pkgconfig")}
        flags = output("pkg-config", "--cflags", "--libs", "pelto-client", env=environment).split()
        flags += ["-std=c++17", f"-Wl,-rpath,{cls.prefix}/lib"]
        for name in EXAMPLES:
            program = cls.built["pkg-config"] / name
            output(CXX, SOURCE / f"examples/{name}.cpp", "-o", program, *flags)

    def start_listener(self, folder, *words):
        """A listener that has said that it listens."""
        listener = subprocess.Popen(
            [folder / "listener", *words],
            env=ENVIRONMENT,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        self.addCleanup(listener.communicate)
        self.addCleanup(listener.kill)
        with selectors.DefaultSelector() as selector:
            selector.register(listener.stderr, selectors.EVENT_READ)
            self.assertTrue(selector.select(PATIENCE), "the listener says nothing")
        self.assertEqual(listener.stderr.readline(), "listening\n")
        return listener

    def end_of(self, listener):
        text, errors = listener.communicate(timeout=PATIENCE)
        return listener.returncode, text, errors

    def test_listeners_get_what_reporters_send(self):
        output(self.prefix / "bin/pelto", "phone", "start")
        for folder in self.built.values():
            listener = self.start_listener(folder, "--count", "3")
            output(folder / "reporter", "first_event", "key:value,other:1")
            output(folder / "reporter", input="second_event a b\n\nthird_event\n")
            events = "first_event key:value,other:1\nsecond_event a b\nthird_event \n"
            self.assertEqual(self.end_of(listener), (0, events, ""))
        log = output(self.prefix / "bin/pelto", "logcat", "-d", "reporter:V", "*:S")
        self.assertEqual(log.count("sent third_event"), 2)

        stopped, deserted = self.start_listener(folder), self.start_listener(folder)
        stopped.send_signal(signal.SIGINT)
        self.assertEqual(self.end_of(stopped), (0, "", ""))
        output(self.prefix / "bin/pelto", "phone", "stop")
        self.assertEqual(self.end_of(deserted), (1, "", "listener: the service has ended\n"))
        unsent = run(folder / "reporter", "late_event")
        self.assertEqual(unsent.returncode, 1)
        self.assertEqual(unsent.stderr, "reporter: late_event: the service is not published\n")

    def test_programs_without_a_phone_say_so(self):
        nowhere = {**ENVIRONMENT, "PELTO_PHONE": str(WORK / "none")}
        for name, words in (("reporter", ["an_event"]), ("listener", [])):
            ended = run(self.built["cmake"] / name, *words, env=nowhere)
            self.assertEqual((ended.returncode, ended.stdout), (3, ""))
            self.assertRegex(ended.stderr, rf"\A{name}: {WORK}/none: .* pelto .*phone start.*\n\Z")

    def test_headers_are_whole_and_no_more_than_clients_need(self):
        installed = {str(path.relative_to(self.include)) for path in self.include.rglob("*.h")}
        flags = ["-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Werror", f"-I{self.include}"]

        def compile_alone(header):
            output(CXX, *flags, "-fsyntax-only", "-include", header, "-x", "c++", "/dev/null")

        with ThreadPoolExecutor() as pool:
            list(pool.map(compile_alone, installed))
        used = set()
        for name in EXAMPLES:
            made = output(CXX, *flags, "-MM", SOURCE / f"examples/{name}.cpp")
            used.update(re.findall(rf"{self.include}/(\S+)", made))
        self.assertEqual(installed, used)

    def test_nothing_names_the_place_where_it_was_made(self):
        paths = [path for path in self.prefix.rglob("*") if path.is_file()]
        for path in paths:
            content = path.read_bytes()
            if content.startswith(b"\x7fELF"):
                runpath = re.findall(r"RUNPATH\).*\[(.*)\]", output("readelf", "-d", path))
                beside = "$ORIGIN" if path.parent.name == "lib" else "$ORIGIN/../lib"
                self.assertEqual(runpath, [beside], path)
                continue
            for place in (SOURCE, BUILD, WORK / "made"):
                self.assertNotIn(os.fsencode(place), content, path)


class Uninstalled(unittest.TestCase):
    def uninstall(self):
        output(CMAKE, "--build", BUILD, "--target", "uninstall")

    def test_leaves_nothing(self):
        prefix = WORK / "above/\xf6 [once"
        install(prefix)
        self.assertTrue((prefix / "bin/pelto").exists())
        install(prefix)
        self.uninstall()
        self.assertFalse(prefix.parent.exists(), list(prefix.parent.rglob("*")))

    def test_leaves_the_live_files_of_a_staged_installation(self):
        prefix, stage = WORK / "live", WORK / "stage"
        install(prefix)
        staged = {**ENVIRONMENT, "DESTDIR": str(stage)}
        output(CMAKE, "--install", BUILD, "--prefix", prefix, env=staged)
        self.uninstall()
        self.assertFalse(stage.exists(), list(stage.rglob("*")))
        self.assertTrue((prefix / "bin/pelto").exists())

    def test_leaves_what_others_have(self):
        prefix = WORK / "shared"
        (prefix / "lib/pkgconfig").mkdir(parents=True)
        (prefix / "bin").mkdir()
        (prefix / "bin/theirs").write_text("theirs")
        before = sorted(prefix.rglob("*"))
        install(prefix)
        (prefix / "include/pelto/theirs.h").write_text("theirs")
        self.uninstall()
        theirs = [prefix / "include", prefix / "include/pelto", prefix / "include/pelto/theirs.h"]
        self.assertEqual(sorted(prefix.rglob("*")), sorted(before + theirs))


if __name__ == "__main__":
    unittest.main(verbosity=2)
