"""Runs the check of the phone build's library on small libraries compiled here."""

import sys
import tempfile
import unittest
from pathlib import Path
from subprocess import run

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
import check_phone_library  # noqa: E402


HEADER = """
    namespace android { class Thread { public: virtual void run(); }; void join(); }  // Mutex
    long systemTime(int clock);
    extern "C" int __android_log_write(int, const char*, const char*);
"""


class PhoneLibrary(unittest.TestCase):
    def problems(self, code):
        with tempfile.TemporaryDirectory() as folder:
            library = f"{folder}/lib.so"
            command = ["g++", "-shared", "-fPIC", "-x", "c++", "-", "-o", library]
            run(command, input=code, text=True, check=True)
            Path(f"{folder}/Thread.h").write_text(HEADER)
            return check_phone_library.check("nm", library, folder)

    def test_the_phones_libraries_may_be_left_open(self):
        code = f"""
            #include <string>
            #include <unistd.h>
            {HEADER}
            int use() {{ android::Thread t; t.run(); android::join(); systemTime(1);
                        return __android_log_write(1, std::to_string(getpid()).c_str(), ""); }}"""
        self.assertEqual(self.problems(code), [])

    def test_what_the_phone_lacks_is_refused(self):
        self.assertRegex(self.problems("void other(); void use() { other(); }")[0], r"other\(\)")
        mutex = "namespace android { struct Mutex { void lock(); }; void f() { Mutex().lock(); } }"
        self.assertRegex(self.problems(mutex)[0], r"android::Mutex::lock\(\)")
        self.assertRegex(
            self.problems("namespace phone { void open(); } void use() { phone::open(); }")[0],
            r"phone::open\(\)",
        )

    def test_the_simulated_phone_is_refused_even_when_defined(self):
        self.assertRegex(self.problems("namespace sim { void root() {} }")[0], r"sim::root\(\)")


if __name__ == "__main__":
    unittest.main()
