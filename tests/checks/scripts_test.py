"""Checks the sum in the last line of test.sh and the exit status."""

import subprocess
import tempfile
import unittest
from pathlib import Path

TOOLS = Path(__file__).resolve().parents[2] / "tools"
CTEST = "echo '{}% tests passed, {} tests failed out of {}'; exit {}"


class Stages(unittest.TestCase):
    def run_stages(self, *commands):
        script = [f". {TOOLS}/stages.sh", "stage_logs=."]
        script += [f'stage "s {i}" bash -c "{c}" || true' for i, c in enumerate(commands)]
        with tempfile.TemporaryDirectory() as folder:
            run = subprocess.run(
                ["bash", "-euo", "pipefail", "-c", "\n".join(script + ["sum_up"])],
                cwd=folder,
                capture_output=True,
                text=True,
            )
        self.assertEqual(run.stderr, "")
        return run.returncode, run.stdout.splitlines()

    def test_totals_of_all_stages(self):
        seven, five = CTEST.format(100, 0, 7, 0), CTEST.format(100, 0, 5, 0)
        status, lines = self.run_stages(seven, "true", five)
        self.assertEqual(status, 0)
        self.assertEqual(lines[-1], "100% tests passed, 0 tests failed out of 12")

    def test_failures_are_named_and_counted(self):
        status, lines = self.run_stages(CTEST.format(98, 1, 60, 8), "echo why; false", "true")
        self.assertEqual(status, 1)
        self.assertIn("    why", lines)
        self.assertEqual(lines[-3:-1], ["failed stage: s 0", "failed stage: s 1"])
        self.assertEqual(lines[-1], "96% tests passed, 2 tests failed out of 61")

    def test_a_stage_that_dies_after_good_tests_still_fails(self):
        status, lines = self.run_stages(CTEST.format(100, 0, 3, 8))
        self.assertEqual(status, 1)
        self.assertEqual(lines[-1], "75% tests passed, 1 tests failed out of 4")


class Setup(unittest.TestCase):
    def setup(self, *arguments, **options):
        command = ["/bin/bash", f"{TOOLS}/setup.sh", *arguments]
        return subprocess.run(command, capture_output=True, text=True, **options)

    def test_quiet_when_all_is_there(self):
        run = self.setup("build")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))

    def test_says_what_to_install_without_a_package_manager(self):
        run = self.setup("build", "/nowhere/x.h=libx-dev", env={"PATH": "/nowhere"})
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stderr, "no apt-get here.*ninja-build.*libx-dev")


if __name__ == "__main__":
    unittest.main()
