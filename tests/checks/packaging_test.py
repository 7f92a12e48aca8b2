"""Plants faults in copies of the tree: the check of the packaging finds each."""

import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
import build_file_checks  # noqa: E402
import check_packaging  # noqa: E402
import sources  # noqa: E402

PHONE = "packaging/phone/"
POLICY = PHONE + "sepolicy/peltoserviced.te"
SCRIPT = PHONE + "peltoserviced.rc"
START_UP = "service/PeltoServiceStartup.cpp"
PAGE = "docs/on-the-phone.md"
DMESG = "logcapture/KelvoDmesgThread.cpp"


class Packaging(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name in [*sources.PRODUCT, "phone", "platform", "host", "packaging", "docs"]:
            shutil.copytree(ROOT / name, self.root / name)

    def assert_found(self, path, old, new, expected):
        """The first `old` in the file becomes `new`: the check reports that, and then no more."""
        text = (self.root / path).read_text()
        self.assertIn(old, text)
        (self.root / path).write_text(text.replace(old, new, 1))
        problems = check_packaging.check(self.root)
        self.assertTrue(any(re.search(expected, problem) for problem in problems), problems)
        (self.root / path).write_text(text)

    def assert_found_in_code(self, line, expected):
        empty = "void PeltoService::onFirstRef() {}"
        code = f"{empty[:-1]} {line} }}"
        expected = f"{START_UP}: uses {expected}, which the policy does not grant"
        self.assert_found(START_UP, empty, code, expected)

    def test_this_tree_is_right(self):
        self.assertEqual(check_packaging.check(ROOT), [])

    def test_what_the_sources_use_is_granted(self):
        for line, expected in {
            'phone::open("/data/kelvo/new/file", O_RDONLY);': "path /data/kelvo/new/file",
            'runGuarded("x", String8("cat " "/dev/kmsg"));': "path /dev/kmsg",
            'phone::system("mount -a");': "program mount",
            'phone::system("reboot");': "program reboot",
            'property_get("ro.new", value, "");': "read ro.new",
            'base::SetProperty("sys.new", "");': "set sys.new",
            'property_set("ctl.start", "bugreport");': "start bugreport",
            'defaultServiceManager()->getService(String16("power"));': "find power",
            "phone::socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);": "socket netlink_route",
            "phone::socket(AF_INET, SOCK_DGRAM, 0);": "socket af_inet",
        }.items():
            self.assert_found_in_code(line, expected)
        made_up = "SetProperty(name() + kTop"
        self.assert_found(
            "service/PeltoServiceState.cpp", "SetProperty(kTop", made_up, "'name' is neither"
        )

    def test_what_no_source_uses_is_not_granted(self):
        self.assert_found(DMESG, '"touch " AD_DMESG,', "", "grants program touch, which no source")
        self.assert_found(DMESG, "kUrgentAudio = -19", "kUrgentAudio = 0", "grants priority raised")
        property_name = "ro.kelvo.memory.size"
        self.assert_found(
            "gpu/KelvoGpuMinidump.cpp", property_name, "ro.other", f"grants read {property_name}"
        )
        sysfs = "sysfs_pelto_gpu_snapshot:file {"
        shell = "shell_exec:file { getattr open read execute execute_no_trans map }"
        priority = "# For: priority raised\n"
        for old, new, expected in (
            ("# For: program cp\n", "# For: program cp\n# For: program mv\n", "program mv, which"),
            ("kernel:system {", "kernel:process { signal", "class process"),
            ("logd:unix_stream_socket connectto", "logd:property_service set", "logcat grant"),
            (sysfs, sysfs + " write", "snapshot/timestamp grant file write"),
            ("system_file:file {", "system_file:file { unlink", "dumpsys grant file unlink"),
            ("tombstone_data_file:file", "pelto_gpu_dump_data_file:file", "labels nothing"),
            ("self:process setsched", "self:{ process file } setsched", "grant the class file"),
            (priority, "", "without a line 'For:'"),
            (priority, "permissive peltoserviced;\n", "only plain rules"),
            (shell, "shell_exec:file *", "only plain rules"),
        ):
            self.assert_found(POLICY, old, new, expected)
        for kind, name in (("file", "/data/x(/.*)?"), ("property", "sys.x"), ("service", "x")):
            line = f"{name} u:object_r:build_prop:s0\n"
            expected = f"{kind}_contexts labels {re.escape(name)}, which no source uses"
            self.assert_found(f"{PHONE}sepolicy/{kind}_contexts", "", line, expected)

    def test_every_part_of_a_grant_is_there(self):
        for kind, entry in (
            ("property", "kelvo.audio.dumpinfo.type"),
            ("property", "ctl.start$"),
            ("property", "ro.kelvo.memory.size"),
            ("service", "peltoservice"),
            ("file", "/data/kelvo/mmdump/gpu"),
            ("file", "/sys/devices"),
        ):
            contexts = f"{PHONE}sepolicy/{kind}_contexts"
            self.assert_found(contexts, entry, "#", "labels nothing|has no label")
        for old, new, expected in (
            ("# For: set sys.kelvo.video.top.activity.name\n", "", "uses set sys.kelvo"),
            ("netlink_generic_socket { create", "netlink_generic_socket {", "lack netlink_generic"),
        ):
            self.assert_found(POLICY, old, new, expected)

    @unittest.skipIf(shutil.which("checkmodule") is None, "there is no checkmodule here")
    def test_the_policy_is_compiled(self):
        self.assert_found(POLICY, "syslog_read", "syslog_raed", "does not compile: .*syslog_raed")

    def test_the_build_file_fits(self):
        for old, new, expected in (
            ('"gpu/KelvoGpuMinidump.cpp",', "", "lacks gpu/KelvoGpuMinidump"),
            ("phone_device", "phone_workstation", "has phone/phone_workstation"),
            ('"libwex",', "", "lacks libwex"),
            ('"libwex",', '"libwex", "libwex",', "has a name twice"),
            ('multilib: "32"', 'multilib: "64"', "compile_multilib is 64, not 32"),
            ("    init_rc:", "    // init_rc:", "init_rc is None"),
            ("cc_binary {", "cc_binary {\n    sanitize: {\n    },", "left is sanitize"),
            ("cc_binary {", "soong_namespace {\n}\n\ncc_binary {", "module is soong_namespace"),
        ):
            self.assert_found(PHONE + "Android.bp", old, new, expected)
        self.assert_found("gpu/CMakeLists.txt", "PRIVATE", "PRIVATE New.cpp", "lacks gpu/New.cpp")

    def test_the_init_script_fits(self):
        for old, new, expected in (
            ("mkdir /data/kelvo/mmdump/gpu 0770 system log", "", "does not make /data/kelvo"),
            ("on boot\n", "on boot\n    mkdir /data/x 0771 system log\n", "makes /data/x"),
            ("    oneshot\n", "", "audiodumpinfo is not started by name only"),
            ("service audiodumpinfo", "service other", "the service audiodumpinfo is not"),
            ("capabilities SYSLOG SYS_NICE", "capabilities SYSLOG", "other capabilities"),
        ):
            self.assert_found(SCRIPT, old, new, expected)

    def test_the_page_is_true(self):
        self.assert_found(PAGE, "`SurfaceFlinger`", "it", "does not name `Surface")
        self.assert_found(DMESG, "err=%d (%s)", "error=%d", "no source logs 'KelvoDmesgThread: %s")

    def test_the_copy_is_whole(self):
        copy = self.root / "copy"
        script = ROOT / PHONE / "copy_to.sh"
        subprocess.run([script, copy], check=True)
        modules, _ = build_file_checks.modules((copy / "Android.bp").read_text())
        for name in modules["libpeltoservice"]["srcs"] + modules["peltoserviced"]["srcs"]:
            text = (copy / name).read_text()
            for header in re.findall(r'^#include "([^"]+)"', text, re.M):
                self.assertTrue((copy / header).is_file(), f"{name}: {header}")
        self.assertEqual([path for path in copy.rglob("*_test.*")], [])
        again = subprocess.run([script, copy], capture_output=True, text=True)
        self.assertEqual((again.returncode, again.stderr), (1, f"copy_to.sh: {copy} exists\n"))


if __name__ == "__main__":
    unittest.main()
