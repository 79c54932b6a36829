#!/usr/bin/env python3
"""The check of sizes can fail: small trees with one thing too large each, and how members count."""

import pathlib
import tempfile
import unittest

import sizes


def membersOf(text):
    return {c.name: c.members for c in sizes.read("x.h", text).classes}


def linesOf(text):
    return {f.name: f.lines for f in sizes.read("x.cpp", text).functions}


def fields(count):
    return "".join(f"  int field{n}_ = 0;\n" for n in range(count))


def function(name, lines):
    return f"void {name}() {{\n" + "  call();\n" * (lines - 2) + "}\n"


class LimitsTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name)

    def faultsWith(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return sizes.check(self.root)[0]

    def testWhatIsJustSmallEnoughPasses(self):
        text = "class A {\n" + fields(30) + "};\n" + function("f", 40)
        text += "\n" * (400 - text.count("\n"))
        self.assertEqual(self.faultsWith("service/base/A.h", text), [])

    def testAClassWithOneMemberTooManyFails(self):
        text = "namespace tulo {\n\nclass A {\n" + fields(31) + "};\n}\n"
        self.assertEqual(self.faultsWith("host/A.h", text),
                         ["host/A.h:3: A has 31 members, at most 30"])

    def testAClassInASourceFileCountsToo(self):
        text = "namespace {\nstruct A {\n" + fields(31) + "};\n}\n"
        self.assertEqual(len(self.faultsWith("service/A.cpp", text)), 1)

    def testAFunctionThatIsOneLineTooLongFails(self):
        self.assertEqual(self.faultsWith("cli/A.cpp", "\n" + function("f", 41)),
                         ["cli/A.cpp:2: f() has 41 lines, at most 40"])

    def testAFunctionInAClassFails(self):
        text = "class A {\n public:\n" + function("f", 41) + "};\n"
        self.assertEqual(len(self.faultsWith("cli/A.h", text)), 1)

    def testAFileThatIsOneLineTooLongFails(self):
        self.assertEqual(self.faultsWith("sqlite/A.cpp", "\n" * 401),
                         ["sqlite/A.cpp: 401 lines, at most 400"])

    def testTablesMayBeLong(self):
        name, table = next(iter(sizes.LONG_FUNCTIONS)).split(":")
        self.assertEqual(self.faultsWith(name, function(table, 41)), [])
        self.assertEqual(len(self.faultsWith(name, function("other", 41))), 1)

    def testBracketsThatDoNotMatchAreAnError(self):
        for text in ("void f() {\n", "class A {\n", "}\n", "int x = (1;\n"):
            with self.assertRaises(sizes.SourceError):
                self.faultsWith("host/A.cpp", text)


class MembersTest(unittest.TestCase):
    def testDataAndFunctionsCount(self):
        self.assertEqual(membersOf("""
            class A : public B<int> {
             public:
              explicit A(int x);
              ~A() { end(); }
              int number() const { return number_; }
              virtual void pure() = 0;
              template <typename T> void any(T value, std::map<int, int> more = {});
             private:
              std::map<int, std::pair<int, int>> map_;
              std::atomic<int> atom_{0};
              std::mutex mutex_;
              int guarded_ TULO_GUARDED_BY(mutex_) = 0;
              std::function<void(int, int)> call_ = [](int, int) { return; };
            };"""), {"A": 10})

    def testWhatIsDeletedDefaultedAliasedOrAFriendDoesNot(self):
        self.assertEqual(membersOf("""
            class A {
              A() = default;
              A(const A&) = delete;
              A& operator=(const A&) = delete;
              bool operator==(const A&) const = default;
              using Text = std::string;
              typedef int Number;
              friend class B;
              static_assert(sizeof(int) == 4, "");
            };"""), {"A": 0})

    def testNestedTypesHaveTheirOwnMembers(self):
        self.assertEqual(membersOf("""
            class A {
              struct Inner { int x = 0; int y = 0; };
              class Later;
              enum class Kind { one, two, three };
              struct Other { int z; } other_;
              struct stat status_;
            };"""), {"Inner": 2, "Other": 1, "A": 2})

    def testEachNameOfOneDeclarationCounts(self):
        self.assertEqual(membersOf("struct A { int a = f(1, 2), b, c; };"), {"A": 3})

    def testOperatorsCountOnce(self):
        self.assertEqual(membersOf("""
            struct A {
              bool operator()(int x, int y) const { return x < y; }
              explicit operator bool() const { return true; }
              bool operator<(const A& other) const;
            };"""), {"A": 3})

    def testAnnotatedAndFinalClassesKeepTheirNames(self):
        self.assertEqual(membersOf('class TULO_CAPABILITY("mutex") A final : public B { int a; };'),
                         {"A": 1})

    def testTextAndCommentsAreNotCode(self):
        self.assertEqual(membersOf("""
            struct A {  // struct B { int x; };
              /* int no; */ const char* text = "struct C { int x; }; {";
              char quote = '"';
              const char* raw = R"(
            #else { " )";
            };"""), {"A": 3})

    def testOfTwoAlternativesTheFirstIsRead(self):
        self.assertEqual(membersOf("""
            #if X
            struct A {
            #else
            struct B {
            #endif
              int x;
            };"""), {"A": 1})


class FunctionsTest(unittest.TestCase):
    def testAFunctionGoesFromItsHeadToItsLastBrace(self):
        self.assertEqual(linesOf("""
            template <typename T>
            std::optional<T> A<T>::find(int a,
                                        int b) const {
              if (a) { return {}; }
              const auto inner = [&] { return b; };
            }
            A::~A() {}
            struct stat statOf(int x) { return {}; }
            extern "C" { int main() { return 0; } }
            """), {"A::find": 5, "A::~A": 1, "statOf": 1, "main": 1})

    def testMembersInitialisedInBracesAreNoBody(self):
        self.assertEqual(linesOf("""
            A::A(int x)
                : first_{x},
                  second_({1, 2}), third_{} {
              call();
            }"""), {"A::A": 5})

    def testValuesInBracesAreNoFunctions(self):
        self.assertEqual(linesOf("""
            const std::map<int, int> table = {{1, 2}, {f(3), 4}};
            constexpr int number{5};
            const auto call = [](int x) { return x; };
            int (*pointer)(int) = nullptr;
            """), {})

    def testMethodsOfObjectiveCAreFunctions(self):
        found = sizes.read("x.mm", """
            @interface A : NSObject {
              int x_;
            }
            - (void)method;
            @end
            @implementation A
            - (void)take:(int)x and:(int)y {
              call(^{ return; });
            }
            @end
            """).functions
        self.assertEqual([f.lines for f in found], [3])


if __name__ == "__main__":
    unittest.main()
