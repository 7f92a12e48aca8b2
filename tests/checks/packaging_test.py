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
import phone_policy  # noqa: E402
import phone_uses  # noqa: E402
import policy_checks  # noqa: E402
import sources  # noqa: E402

PHONE = "packaging/phone/"
POLICY = PHONE + "sepolicy/peltoserviced.te"
CAPTURE = PHONE + "sepolicy/pelto_capture.te"
SCRIPT = PHONE + "peltoserviced.rc"
START_UP = "service/PeltoServiceStartup.cpp"
PAGE = "docs/on-the-phone.md"
DMESG = "logcapture/KelvoDmesgThread.cpp"


class Packaging(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.uses = phone_uses.by_domain(ROOT)

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
            'phone::system("dmesg | sed -n 1p");': "program sed",
            'phone::open("/data", O_RDONLY);': "path /data",
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
        self.assert_found(DMESG, "dmesg -c", "dmesg", "grants clear dmesg, which no source")
        property_name = "ro.kelvo.memory.size"
        self.assert_found(
            "gpu/KelvoGpuMinidump.cpp", property_name, "ro.other", f"grants read {property_name}"
        )
        for kind, name in (("file", "/data/x(/.*)?"), ("property", "sys.x"), ("service", "x")):
            line = f"{name} u:object_r:build_prop:s0\n"
            expected = f"{kind}_contexts labels {re.escape(name)}, which no source uses"
            self.assert_found(f"{PHONE}sepolicy/{kind}_contexts", "", line, expected)

    def compare_policy(self):
        policy = phone_policy.Policy(self.root / PHONE / "sepolicy")
        return policy_checks.compare(self.uses, policy)

    def test_no_line_of_the_policy_can_be_lost(self):
        for path in (self.root / PHONE / "sepolicy").iterdir():
            text = path.read_text()
            for line in text.splitlines():
                comment = line.startswith("#") and not line.startswith("# For:")
                if not line or comment or line.startswith("attribute"):
                    continue
                with self.subTest(line=line):
                    before, after = text.split(line + "\n", 1)
                    path.write_text(before + after)
                    self.assertNotEqual(self.compare_policy(), [])
            path.write_text(text)

    def test_no_rule_can_be_widened(self):
        for name in ("peltoserviced.te", "pelto_capture.te"):
            path = self.root / PHONE / "sepolicy" / name
            text = path.read_text()
            for rule in re.findall(r"^allow .*;$", text, re.M):
                with self.subTest(rule=rule):
                    head, _, last = rule[:-1].rstrip("} ").rpartition(":")
                    class_, permissions = last.split(" ", 1)
                    wider = f"{head}:{class_} {{ {permissions.strip('{ ')} relabelto }};"
                    path.write_text(text.replace(rule, wider, 1))
                    self.assertTrue(any("relabelto" in line for line in self.compare_policy()))
            path.write_text(text)

    def test_a_grant_of_another_kind_is_refused(self):
        priority = "# For: priority raised\n"
        shell = "shell_exec:file { getattr open read execute execute_no_trans map }"
        exception = "pelto_exception_data_file, file_type"
        unneeded = "is needed by none"
        for old, new, expected in (
            ("# For: program cp\n", "# For: program cp\n# For: program mv\n", "program mv, which"),
            ("# For: program cp\n", "# For: start audiodumpinfo\n", "above rules that it does not"),
            ("tombstone_data_file:file {", "tombstone_data_file:file { unlink", unneeded),
            ("tombstone_data_file:file", "pelto_gpu_dump_data_file:file", "lacks .* tombstone"),
            ("surfaceflinger:binder call", "system_server:binder call", unneeded),
            ("# For: add", "allow init build_prop:file read;\n# For: add", unneeded),
            ("self:process setsched", "self:process setsched; allow init self:fd use", unneeded),
            (priority, priority + "# For: reading mail\n", "grants reading mail"),
            (priority, "", "without a line 'For:'"),
            (priority, priority + "permissive peltoserviced;\n", "only plain rules"),
            (shell, "shell_exec:file *", "only plain rules"),
            ("self:process setsched;", "self:process setsched", "only plain rules"),
            (shell, "{ file_type -shell_exec }:file read", "only plain rules"),
            ("domain, coredomain", "domain, coredomain, mlstrustedsubject", "other attributes"),
            (exception, "pelto_other, file_type;\ntype " + exception, "pelto_other, which labels"),
        ):
            self.assert_found(POLICY, old, new, expected)
        self.assert_found(CAPTURE, "syslog_read", "{ syslog_read syslog_mod }", unneeded)
        folder = self.root / PHONE / "sepolicy"
        shutil.copy(folder / "pelto_capture.te", folder / "other.te")
        self.assert_found(POLICY, "", "", "other.te, which nothing compares")

    def test_a_capturing_program_has_a_domain_of_its_own(self):
        made = "KelvoPeltoLogThread thread(String8());"
        empty = "void PeltoService::onFirstRef() {}"
        self.assert_found(START_UP, empty, f"{empty[:-1]} {made} }}", "names KelvoPeltoLogThread")
        self.assert_found(
            "logcapture/KelvoPeltoLogThread.cpp",
            "dumpsys audio",
            "dumpsys power",
            "uses dump power, which the policy does not grant to pelto_capture",
        )

    def test_labels_fit(self):
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
        files = f"{PHONE}sepolicy/file_contexts"
        self.assert_found(files, "/data/kelvo/mmdump/gpu", "/data/kelvo", "gpu/ has no label")
        self.assert_found(files, "/system_ext)", ")", "labels .*, which no source uses")
        properties = f"{PHONE}sepolicy/property_contexts"
        self.assert_found(properties, "exact bool", "prefix bool", "no label that can be compared")
        self.assert_found(properties, ":s0", "", "no label that can be compared")
        self.assert_found(properties, "pelto_memory", "pelto_new", "lacks the type pelto_new_prop")

    @unittest.skipIf(shutil.which("checkmodule") is None, "there is no checkmodule here")
    def test_the_policy_is_compiled(self):
        self.assert_found(POLICY, "syslog_read", "syslog_raed", "does not compile: .*syslog_raed")

    def test_the_build_file_fits(self):
        for old, new, expected in (
            ('"gpu/KelvoGpuMinidump.cpp",', "", "lacks gpu/KelvoGpuMinidump"),
            ("phone_device", "phone_workstation", "has phone/phone_workstation"),
            ('"libwex",', "", "lacks libwex"),
            ('"libwex",', '"libwex", "libwex",', "has a name twice"),
            ('"liblog",', '"liblog"', "left is shared_libs"),
            ('multilib: "32"', 'multilib: "64"', "compile_multilib is 64, not 32"),
            ("    init_rc:", "    // init_rc:", "init_rc is None"),
            ("cc_binary {", "cc_binary {\n    sanitize: {\n    },", "left is sanitize"),
            ("cc_binary {", "soong_namespace {\n}\n\ncc_binary {", "module is soong_namespace"),
        ):
            self.assert_found(PHONE + "Android.bp", old, new, expected)
        self.assert_found("gpu/CMakeLists.txt", "PRIVATE", "PRIVATE New.cpp", "lacks gpu/New.cpp")

    def test_the_init_script_fits(self):
        gpu = "mkdir /data/kelvo/mmdump/gpu 0770 system log"
        parent = "    mkdir /data/kelvo/mmdump 0771 system log\n"
        capabilities = "capabilities SYSLOG SYS_NICE"
        for old, new, expected in (
            (gpu, "", "lacks 'mkdir /data/kelvo/mmdump/gpu 0770 system log'"),
            (gpu, gpu.replace("0770 system log", "0777 root root"), "has 'mkdir .* 0777 root"),
            (gpu, gpu + "\n    mkdir /data/foo/bar", "has 'mkdir /data/foo/bar'"),
            (parent, "", "makes /data/kelvo/mmdump/gpu before the directory above it"),
            (parent + "    " + gpu, "    " + gpu + "\n" + parent[:-1], "gpu before the directory"),
            ("on boot\n", "on boot\n    mkdir /data/x 0771 system log\n", "'on boot' has 'mkdir"),
            ("    restorecon_recursive", "#", "'on boot' lacks 'restorecon_recursive"),
            ("on boot", "on charger", "has no 'on boot'"),
            ("    oneshot\n", "", "audiodumpinfo' lacks 'oneshot'"),
            ("service audiodumpinfo", "service other", "has 'service other"),
            (capabilities, capabilities[:-9], "has 'capabilities SYSLOG'"),
            (capabilities, capabilities + "\n    oneshot", "peltoserviced' has 'oneshot'"),
            (capabilities, capabilities + "\n    " + capabilities, "has a line twice"),
            ("user system\n", "user root\n", "has 'user root'"),
        ):
            self.assert_found(SCRIPT, old, new, expected)

    def test_the_page_is_true(self):
        gpu = "| `/data/kelvo/mmdump/gpu/` |"
        rows = "| Path | Owner, mode | Made by | Who writes |\n|---|---|---|---|\n"
        row = rows + "| `/data/nowhere/x/` | system log 0770 | init | x |\n"
        for old, new, expected in (
            (rows, row, "paths has `/data/nowhere/x/`"),
            (gpu, "| x |", "paths lacks `/data/kelvo/mmdump/gpu/`"),
            ("system log 0770", "root root 0777", "has another owner, mode"),
            ("the phone's | the phone", "system log 0770 | init", "has another owner, mode"),
            ("`SYSLOG`, `SYS_NICE` |", "`SYSLOG` |", "`peltoserviced` has another user"),
            ("`system`; `audio`", "`root`; `audio`", "`audiodumpinfo` has another user"),
            ("`sh`, and from it", "`sh`, `dumpsys`", "programs has `dumpsys`"),
            ("`perfetto`, ", "", "'Its programs' of pelto_capture lacks `perfetto`"),
            (gpu, gpu + " x |\n|", "`/data/kelvo/mmdump/gpu/` has another owner"),
            (gpu, f"{gpu}\n{gpu}", "paths has a name twice"),
            ("`SurfaceFlinger`", "it", "'Called' of peltoserviced lacks `Surface"),
            ("Read: ", "Read: `ro.other`, ", "'Read' of peltoserviced has `ro.other`"),
        ):
            self.assert_found(PAGE, old, new, expected)
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
