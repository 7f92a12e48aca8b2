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
LANGUAGE = ["library libstdc++", "library libgcc_s", "std::basic_string", "std::allocator"]


class PhoneLibrary(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def compiled(self, code):
        library = self.folder / "lib.so"
        command = ["g++", "-shared", "-fPIC", "-x", "c++", "-", "-o", library]
        run(command, input=code, text=True, check=True)
        return library

    def problems(self, code):
        (self.folder / "Thread.h").write_text(HEADER)
        return check_phone_library.check("nm", self.compiled(code), self.folder)

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

    def test_a_new_need_is_refused_until_it_is_listed(self):
        code = """
            #include <string>
            #include <unistd.h>
            namespace android {
            struct Thread { void run(long); template <class T> void join(T); };
            }
            std::string use() { android::Thread thread; thread.run(1); thread.join(1); getpid();
                                return std::string(20, ' ').substr(1); }"""
        library, listed = self.compiled(code), self.folder / "needed.txt"
        names = ["android::Thread::run", "getpid", "library libc"]
        listed.write_text("\n".join([*names, *LANGUAGE]))
        problems = check_phone_library.check_needed("nm", library, listed)
        self.assertEqual(len(problems), 1, problems)
        self.assertRegex(problems[0], r"android::Thread::join\. .*--write")
        for missing in names:
            listed.write_text(listed.read_text().replace(missing, "other"))
        problems = check_phone_library.check_needed("nm", library, listed)
        self.assertEqual(len(problems), 4, problems)

    def test_the_limit_of_the_size_is_inclusive(self):
        stripped = self.folder / "lib.so"
        stripped.write_bytes(bytes(100))
        self.assertEqual(check_phone_library.check_size(stripped, 100), [])
        self.assertRegex(check_phone_library.check_size(stripped, 99)[0], "more than 99 bytes")


if __name__ == "__main__":
    unittest.main()
