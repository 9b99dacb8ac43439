#!/usr/bin/env python3
"""The repository checks themselves: each must find a planted fault and let the like of it, done right, pass."""
import pathlib
import shutil
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "cmake" / "checks"))
import check_binary
import check_docs
import check_format
import check_keys
import check_layers
import check_locks
import check_size
import check_sources
import cpp_text


class Layers(unittest.TestCase):
    BAD = [
        ("common/a.h", '#include "config/x.h"\n', "may include only"),
        ("checks/a.h", '#include "iis/httpserv.h"\n', "may include only"),
        ("host/a.cpp", '#include "common/text.h"\n', "may include only"),
        ("port/a.h", '  #  include "common/text.h"\n', "may include only"),
        ("common/a.cpp", "#include <windows.h>\n", "OS header"),
        ("module/a.cpp", "#include <sys/stat.h>\n", "OS header"),
        ("engines/a.cpp", "#if defined(_WIN32)\n#endif\n", "conditional"),
        ("config/a.cpp", "#ifdef __linux__\n#endif\n", "conditional"),
        ("engines/injection/a.cpp", '#include "engines/webshell/x.h"\n', "may not include"),
        ("engines/webshell/php/a.cpp", '#include "engines/webshell/page/x.h"\n', "may not include"),
        ("engines/webshell/flow/a.cpp", '#include "engines/webshell/x.h"\n', "may not include"),
        ("module/a.cpp", "#include <boost/asio.hpp>\n", "only below host/"),
        ("tools/a.cpp", "#include <CLI/CLI.hpp>\n", "only below command_line/command.cpp"),
        ("checks/a.cpp", '#include "command_line/command.h"\n', "may include only"),
        ("module/a.cpp", '#include "stored_context.h"\n', "from the root"),
    ]
    GOOD = [
        ("config/a.h", '#include "common/x.h"\n#include <string>\n'),
        ("module/a.h", '#include "iis/httpserv.h"\n'),
        ("engines/webshell/php/a.cpp", '#include "engines/webshell/flow/x.h"\n#include "engines/webshell/x.h"\n'),
        ("engines/webshell/a.cpp", '#include "engines/webshell/page/x.h"\n'),
        ("checks/a.cpp", '#include "engines/webshell/x.h"\n#include "engines/injection/x.h"\n'),
        ("common/a.cpp", '// #include "module/x.h"\n/*\n#include <windows.h>\n#ifdef _WIN32\n*/\n'),
        ("common/a.cpp", 'const char* x = R"(\n#include <windows.h>\n)";\n'),
        ("common/a.cpp", "int n = 1'000;\n#if defined(QIV_SOMETHING)\n#endif\nint m = 2'0;\n"),
        ("port/windows/a.cpp", "#include <windows.h>\n#ifdef _MSC_VER\n#endif\n"),
        ("host/a.cpp", "#include <boost/asio.hpp>\n"),
        ("tools/a.cpp", '#include "module/x.h"\n#include "command_line/command.h"\n'),
        ("command_line/command.cpp", "#include <CLI/CLI.hpp>\n"),
    ]

    def test_planted_faults(self):
        for name, source, expected in self.BAD:
            faults = check_layers.faults_of_file(name, source)
            self.assertEqual(len(faults), 1, (name, source, faults))
            self.assertIn(expected, faults[0])

    def test_good_files(self):
        for name, source in self.GOOD:
            self.assertEqual(check_layers.faults_of_file(name, source), [], (name, source))

    def test_line_numbers(self):
        faults = check_layers.faults_of_file("common/a.cpp", '/* one\n two */\n#include <windows.h>\n')
        self.assertTrue(faults[0].startswith("common/a.cpp:3:"), faults)


class Size(unittest.TestCase):
    SHAPES = [
        "int Plain(int a) {BODY}",
        "template <typename T>\nauto Trailing(T a) noexcept -> std::vector<T> {BODY}",
        "Thing::Thing(int a) : a_(a), b_{1, 2}, c_(3) {BODY}",
        "struct S {\n int x = 0;\n int F() const override {BODY}\n};",
        "namespace a::b {\nstatic std::string Get(const char* text = \"{(\") {BODY}\n}",
        "TEST(Suite, Name) {BODY}",
        "bool operator==(const T& a, const T& b) {BODY}",
        "class C final : public B {\n ~C() {BODY}\n};",
    ]

    def test_long_and_short_functions(self):
        for shape in self.SHAPES:
            for lines, expected in ((check_size.MAX_FUNCTION_LINES - 2, 0), (check_size.MAX_FUNCTION_LINES, 1)):
                body = "if (x) { Call('}'); }  // {" + "\n" * lines
                source = shape.replace("BODY", body)
                faults = check_size.faults_of_file("a.cpp", source)
                self.assertEqual(len(faults), expected, (shape, lines, check_size.functions(source)))

    def test_no_function(self):
        source = "enum E { a, b };\nconstexpr T kTable[] = {" + "\n {1}," * 200 + "};\nnamespace x {\n" + "int F();\n" * 150 + "}\n"
        self.assertEqual(check_size.functions(source), [])

    def test_two_neighbours_are_two(self):
        self.assertEqual(len(check_size.functions("void A() {\n}\nvoid B() {\n  for (;;) {\n  }\n}\n")), 2)

    def test_long_files(self):
        self.assertEqual(len(check_size.faults_of_file("a.cpp", "\n" * 501)), 1)
        self.assertEqual(check_size.faults_of_file("a.def", "\n" * 501), [])


class Sources(unittest.TestCase):
    def test_a_source_in_no_target(self):
        root = pathlib.Path("/somewhere")
        known = {"/somewhere/a/x.cpp"}
        self.assertEqual(len(check_sources.unlisted(root, ["a/x.cpp", "a/y.cpp"], known)), 1)

    def test_looking_at_nothing_is_a_fault(self):
        self.assertEqual(cpp_text.report("none", [], 0), 1)


class Documents(unittest.TestCase):
    def test_links_and_readmes(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "a").mkdir()
            (root / "a" / "README.md").write_text("# The `a` folder\n" + "x\n" * 30)
            (root / "p.md").write_text("[ok](a/README.md#the-a-folder) [web](https://example.org/x)\n`[code](none.md)`\n"
                                       "[gone](a/none.md)\n[head](a/README.md#none)\n")
            self.assertEqual([fault.split(": link")[0] for fault in check_docs.link_faults(root, pathlib.Path("p.md"))],
                             ["p.md:3", "p.md:4"])
            self.assertEqual(len(check_docs.readme_faults(root, ["a", "b"])), 2)


class Keys(unittest.TestCase):
    def test_marks_and_readers(self):
        table = 'QIV_NUMBER(cc, "cc", {}, "M.")\nQIV_BODY_IF(post, "post", cc, kUpload, "M.")\n'
        ip_set = '    {{"website_some_ips", false, KeyReader::{}, "M."}},\n'
        read = "x = attack_.cc; if (config->attack.post) y(addresses.website_some_ips);"
        for mark, set_mark, code, count in (
                ("kUpload", "kLists", read, 0), ("kIdle", "kLists", read, 1), ("kUpload", "kIdle", read, 1),
                ("kIdle", "kIdle", "attack.post", 0), ("kUpload", "kLists", "other.cc attack.post cc", 2),
                ("kUpload", "kLists", read.replace("attack_.cc", "attack_.cc_more"), 1)):
            faults = check_keys.faults({"attack": table.format(mark)}, ip_set.format(set_mark), code)
            self.assertEqual(len(faults), count, (mark, set_mark, code, faults))
        for broken in ("", 'QIV_NUMBER(cc, "cc", "M.")\n', table.format("kIdle") + "QIV_NUMBER(x, y)\n"):
            with self.assertRaises(ValueError):
                check_keys.rows_of("attack", broken)


class Format(unittest.TestCase):
    @unittest.skipUnless(shutil.which("clang-format"), "clang-format is not installed")
    def test_a_badly_formatted_file(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            shutil.copy(cpp_text.ROOT / ".clang-format", root)
            (root / "good.cpp").write_text("int F() { return 1; }\n")
            (root / "bad.cpp").write_text("int F( ) {return 1;}\n")
            self.assertEqual(check_format.badly_formatted(root, ["good.cpp", "bad.cpp"]), ["bad.cpp"])


class Locks(unittest.TestCase):
    @unittest.skipUnless(shutil.which("clang++"), "clang is not installed")
    def test_a_guarded_item_without_its_lock(self):
        shape = ('#include "port/critical_section.h"\n#include "port/thread_annotations.h"\n'
                 "struct S {{ qiv::CCriticalSection lock; int n QIV_GUARDED_BY(lock) = 0; int Get() {{ {body} }} }};\n")
        with tempfile.TemporaryDirectory() as folder:
            for body, faulty in (("return n;", True), ("qiv::CAutoLock hold(lock); return n;", False)):
                source = pathlib.Path(folder) / "a.cpp"
                source.write_text(shape.format(body=body))
                self.assertEqual(bool(check_locks.faults_of_source(source, cpp_text.ROOT)), faulty, body)


class Binary(unittest.TestCase):
    LISTING = ("\tDLL Name: KERNEL32.dll\n\tDLL Name: {dll}\n\n[Ordinal/Name Pointer] Table\n"
               "\t[   0] +base[   1]  0000 RegisterModule\n{more}\n\n")

    def test_windows(self):
        for dll, more, count in (("msvcrt.dll", "", 0), ("libstdc++-6.dll", "", 1), ("api-ms-win-crt-heap-l1-1-0.dll", "", 1),
                                 ("msvcrt.dll", "\t[   1] +base[   2]  0001 Other", 1)):
            faults = check_binary.windows_faults("x.dll", self.LISTING.format(dll=dll, more=more))
            self.assertEqual(len(faults), count, (dll, more, faults))
        self.assertEqual(len(check_binary.windows_faults("x.dll", "\tDLL Name: KERNEL32.dll\n")), 1)
        for told, count in (("ProductVersion\0\0001.0.0\0\0", 0), ("ProductVersion\0001.0.01\0", 1), ("FileVersion\0001.0.0\0", 1)):
            self.assertEqual(len(check_binary.version_faults("x.dll", ("LegalCopyright\0" + told).encode("utf-16-le"), "1.0.0")), count, told)
        header = ("Time/Date\t\tThu Jan  1 00:00:00 1970\n\t\tHIGH_ENTROPY_VA\n\t\tDYNAMIC_BASE\n\t\tNX_COMPAT\n"
                  "Entry 5 000000000022c000 000022a4 Base Relocation Directory [.reloc]\n")
        for old, new, count in (("", "", 0), ("1970", "2026", 1), ("NX_COMPAT", "", 1), ("000022a4", "00000000", 1)):
            self.assertEqual(len(check_binary.header_faults("x.dll", header.replace(old, new) if old else header)), count, old)

    def test_elf(self):
        needed = " 0x1 (NEEDED)  Shared library: [{}]\n"
        good = "0000000000001139 T RegisterModule\n"
        self.assertEqual(check_binary.elf_faults("x.so", good, needed.format("libc.so.6")), [])
        self.assertEqual(len(check_binary.elf_faults("x.so", good + "0 W _ZN3qiv1fEv\n", needed.format("libc.so.6"))), 1)
        self.assertEqual(len(check_binary.elf_faults("x.so", good, needed.format("libssl.so.3"))), 1)


if __name__ == "__main__":
    unittest.main()
