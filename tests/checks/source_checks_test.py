"""Runs each source check on small trees with and without violations."""

import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
import check_annotations  # noqa: E402
import check_doors  # noqa: E402
import check_includes  # noqa: E402


class Tree(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def file(self, path, text):
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_text(text)

    def assert_each_refused(self, check, path, lines):
        for line in lines:
            self.file(path, f"\n{line}\n")
            problems = check(self.root)
            self.assertEqual(len(problems), 1, line)
            self.assertTrue(problems[0].startswith(f"{path}:2: "), problems[0])
        (self.root / path).unlink()

    def assert_accepted(self, check, path, text):
        self.file(path, text)
        self.assertEqual(check(self.root), [])


class Includes(Tree):
    def setUp(self):
        super().setUp()
        for header in (
            "platform/utils/RefBase.h",
            "platform/binder/transport/io.h",
            "looper/L.h",
            "event/E.h",
            "gpu/G.h",
            "service/S.h",
            "phone/phone.h",
            "sim/base/clock.h",
            "sim/shell/shell.h",
            "sim/phone.h",
        ):
            self.file(header, "")

    def test_product_leans_one_way_only(self):
        up = ['#include "event/E.h"', '  # include "service/S.h"', '#include "sim/base/clock.h"']
        self.assert_each_refused(check_includes.check, "looper/L.cpp", up)
        side = ['#include "gpu/G.h"', '#include "host/x.h"', '#include "client/x.h"']
        self.assert_each_refused(check_includes.check, "logcapture/C.cpp", side)
        self.assert_each_refused(check_includes.check, "gpu/G.cpp", ['#include "service/S.h"'])

    def test_no_way_round(self):
        ways = ['#include "../sim/phone.h"', "#include <sim/phone.h>", '#include "gone.h"']
        ways += ["#include <nlohmann/json.hpp>", "#include <gtest/gtest.h>"]
        self.assert_each_refused(check_includes.check, "event/E.cpp", ways)

    def test_simulated_phone_is_behind_the_stand_ins_sources(self):
        inside = ["#include <binder/transport/io.h>", '#include "transport/io.h"']
        self.assert_each_refused(
            check_includes.check, "platform/binder/B.h", ['#include "sim/base/clock.h"', *inside]
        )
        self.assert_each_refused(check_includes.check, "service/S.cpp", inside[:1])
        self.assert_each_refused(check_includes.check, "examples/e.cpp", inside[:1])
        self.assert_each_refused(
            check_includes.check, "phone/phone_device.cpp", ['#include "sim/base/clock.h"']
        )
        self.assert_each_refused(
            check_includes.check, "sim/base/clock.cpp", ["#include <utils/RefBase.h>"]
        )
        for path, refused in {"host/phone_main.cpp": 1, "host/other.cpp": 0}.items():
            self.file(path, '#include "sim/base/clock.h"\n#include "service/S.h"')
            self.assertEqual(len(check_includes.check(self.root)), refused, path)
            (self.root / path).unlink()

    def test_rooms_of_the_simulated_phone_lean_one_way(self):
        up = ['#include "sim/shell/shell.h"', "#include <sim/phone.h>"]
        self.assert_each_refused(check_includes.check, "sim/base/fd.cpp", up)
        self.assert_each_refused(check_includes.check, "sim/shell/shell.cpp", up[1:])

    def test_unknown_folder_is_refused(self):
        self.file("attic/A.cpp", '#include "sim/phone.h"')
        self.file("sim/cellar/C.cpp", "")
        problems = check_includes.check(self.root)
        self.assertEqual([problem.split(":")[0] for problem in problems], ["attic/", "sim/cellar/"])

    def test_what_is_right_passes(self):
        for path, text in {
            "sim/shell/shell.cpp": '#include "sim/shell/shell.h"\n#include "sim/base/clock.h"',
            "sim/phone.cpp": '#include "phone.h"\n#include "sim/shell/shell.h"',
            "service/S.cpp": '#include "gpu/G.h"\n#include <utils/RefBase.h>',
            "kernel/K.cpp": '#include "service/S.h"\n#include <linux/netlink.h>',
            "kernel/K.h": '#include "phone/phone.h"\n#include "event/E.h"',
            "looper/L.cpp": '#include "L.h"\n#include <sys/epoll.h>\n// #include "sim/phone.h"',
            "looper/L_test.cpp": '#include "sim/base/clock.h"\n#include <gtest/gtest.h>',
            "phone/phone_workstation.cpp": '#include "phone/phone.h"\n#include "sim/base/clock.h"',
            "platform/utils/Clock.cpp": '#include <utils/RefBase.h>\n#include "sim/base/clock.h"',
            "platform/binder/transport/io.h": '#include "sim/base/clock.h"',
            "platform/binder/B.cpp": '#include "binder/transport/io.h"',
            "client/main.cpp": '#include <CLI/CLI.hpp>\n#include "sim/base/clock.h"',
        }.items():
            self.assert_accepted(check_includes.check, path, text)


class Doors(Tree):
    def test_bare_calls_are_refused(self):
        calls = ["int fd = open(path, 0);", "return ::poll(&p, 1, 0);", "std::remove(path);"]
        calls += ["if (system (line)) {", "else sleep(1);", "std::filesystem::exists(p);"]
        calls += ["auto t = std::chrono::steady_clock::now();", "std::ifstream in(path);"]
        calls += ["x = '\"' + time(nullptr);", "f(1'000, getenv(name));", "(void)std::fopen(a, b);"]
        calls += ["std::this_thread::sleep_for(1s);"]
        self.assert_each_refused(check_doors.check, "gpu/G.cpp", calls)

    def test_what_is_right_passes(self):
        self.assert_accepted(
            check_doors.check,
            "gpu/G.cpp",
            """
            int fd = phone::open(path, 0); fds.remove(fd); file->open(path); this->poll(1);
            /* open( */ // sleep(1)
            log("system(%s) and time( ");
            const char* raw = R"x(open(" fopen()x";
            void Registry::remove(const Key& key);
            items.erase(std::remove(items.begin(), items.end(), key), items.end());
            dueTime(1); reopen(2); auto f = std::bind(g, 1);
            """,
        )

    def test_only_shipped_files_are_looked_at(self):
        self.assert_accepted(check_doors.check, "gpu/G_test.cpp", "open(path, 0);")
        self.assert_accepted(check_doors.check, "sim/files.cpp", "open(path, 0);")


class Annotations(Tree):
    def test_analysis_stays_on(self):
        off = ["void f() NO_THREAD_SAFETY_ANALYSIS;", "__attribute__((no_thread_safety_analysis))"]
        off += ['#pragma clang diagnostic ignored "-Wthread-safety-analysis"']
        self.assert_each_refused(check_annotations.check, "event/E.h", off)
        self.assert_accepted(check_annotations.check, "event/E.h", "void f() REQUIRES(mLock);")


if __name__ == "__main__":
    unittest.main()
