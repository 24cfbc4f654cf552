#!/usr/bin/env python3
import unittest

import mutations


def mutants(body, kind):
    """The texts of the mutants of that kind of a function with this body, on a line of its own."""
    text = f"void f() {{\n{body}\n}}\n"
    return [m.text for m in mutations.mutants_of(text) if m.kind == kind]


def results(text, kind):
    """The sources that the mutants of that kind make of `text`."""
    return [text[:m.at] + m.new + text[m.end:] for m in mutations.mutants_of(text)
            if m.kind == kind]


class Mutations(unittest.TestCase):
    def makes(self, kind, body, *texts):
        self.assertEqual(mutants(body, kind), list(texts))

    def test_conditions_are_negated(self):
        self.makes("negate", "if (a && b) c();", "if (a && b) c(); => if (!(a && b)) c();")
        self.makes("negate", "while (a) c();", "while (a) c(); => while (!(a)) c();")
        self.makes("negate", "if (const auto a = b()) c();",
                   "if (const auto a = b()) c(); => if (const auto a = b(); !a) c();")
        self.makes("negate", "if (int a = b(); a < 7) c();",
                   "if (int a = b(); a < 7) c(); => if (int a = b(); !(a < 7)) c();")

    def test_what_another_kind_negates_is_negated_once(self):
        self.makes("negate", "if (a == b) c();")
        self.makes("negate", "if (!a) c();")
        self.makes("not", "if (!a) c();", "if (!a) c(); => if (a) c();")
        self.makes("compare", "if (a == b) c();", "if (a == b) c(); => if (a != b) c();")

    def test_signs_between_two_values_are_exchanged(self):
        self.makes("compare", "x(a < b);", "x(a < b); => x(a <= b);")
        self.makes("andor", "x(a && b);", "x(a && b); => x(a || b);")
        self.makes("arith", "x(a - b);", "x(a - b); => x(a + b);")

    def test_signs_that_stand_for_something_else_are_left(self):
        self.makes("compare", "std::vector<int> a(b<7>());")
        self.makes("arith", "x(-a, *b, &c); int* d = &e;")
        self.makes("andor", "for (auto&& a : b) c();")

    def test_constants_and_texts_are_others(self):
        self.makes("constant", "x(10, 0);", "x(10, 0); => x((10 + 1), 0);", "x(10, 0); => x(0, 0);",
                   "x(10, 0); => x(10, 1);")
        self.makes("bool", "return true;", "return true; => return false;")
        self.makes("string", 'x("a", "");', 'x("a", ""); => x("~a", "");')

    def test_sides_and_arguments_are_exchanged(self):
        self.makes("ternary", "return a ? b(1, 2) : c;",
                   "return a ? b(1, 2) : c; => return a ? (c) : (b(1, 2));")
        self.makes("swap-args", "x(a, b(1), c);", "x(a, b(1), c); => x(b(1), a, c);",
                   "x(a, b(1), c); => x(a, c, b(1));")

    def test_parts_are_left_out(self):
        self.makes("drop-else", "if (a) b(); else c();", "if (a) b(); else c(); => if (a) b();")
        self.makes("drop-else", "if (a) { b(); } else { c(); }",
                   "if (a) { b(); } else { c(); } => if (a) { b(); }")
        self.makes("loop", "for (;;) { if (a) break; if (b) continue; }",
                   "for (;;) { if (a) break; if (b) continue; } => "
                   "for (;;) { if (a) ; if (b) continue; }",
                   "for (;;) { if (a) break; if (b) continue; } => "
                   "for (;;) { if (a) break; if (b) break; }",
                   "for (;;) { if (a) break; if (b) continue; } => "
                   "for (;;) { if (a) break; if (b) ; }")

    def test_calls_and_assignments_are_deleted_whole(self):
        self.makes("delete-call", "a.b(\n  c);", "a.b( c); => ;")
        self.makes("delete-call", "if (a) b();", "b(); => ;")
        self.makes("delete-assign", "a->b = c(d);", "a->b = c(d); => ;")
        self.makes("delete-assign", "++a;", "++a; => ;")

    def test_declarations_and_jumps_are_not_deleted(self):
        for body in ("Lamp a(b);", "const int a = 1;", "Lamp& a = b;", "return a();",
                     "throw A(b);", "using B::b;"):
            self.makes("delete-call", body)
            self.makes("delete-assign", body)

    def test_functions_return_at_once(self):
        self.assertEqual(results("int A::f(int b) const { return b; }", "early-return"),
                         ["int A::f(int b) const { return {};  return b; }"])
        self.assertEqual(results("static void f() { g(); }", "early-return"),
                         ["static void f() { return;  g(); }"])
        self.assertEqual(results("A::A(int b) : b_(b), c_{b} { g(); }", "early-return"),
                         ["A::A(int b) : b_(b), c_{b} { return;  g(); }"])
        self.assertEqual(results("A::~A() { g(); }", "early-return"), ["A::~A() { return;  g(); }"])
        self.assertEqual(results("void f() {}", "early-return"), [])

    def test_what_is_only_traced_is_a_kind_of_its_own(self):
        traced = 'VM_TRACE(8) << "a" << (b ? 1 : 2);'
        self.assertGreater(len(mutants(traced, "trace")), 4)
        self.assertEqual([m.kind for m in mutations.mutants_of(f"void f() {{\n{traced}\n}}\n")
                          if m.kind not in ("trace", "early-return")], [])

    def test_comments_assertions_at_compile_time_and_includes_are_left(self):
        text = '#include "a.h"\n// if (a == b) c("d");\nstatic_assert(sizeof(int) == 4, "four");\n'
        self.assertEqual(mutations.mutants_of(text), [])

    def test_a_mutant_names_the_function_that_it_is_in(self):
        text = ("namespace a {\nconstexpr int b = 7;\n"
                "bool C::operator==(const C& d) const { return e < d.e; }\n"
                "void C::f() {\n  g([&](int h) { return h < 1; });\n}\n}\n")
        found = {(m.function, m.kind) for m in mutations.mutants_of(text)}
        self.assertLessEqual({("", "constant"), ("C::operator==", "compare"), ("C::f", "compare")},
                             found)

    def test_a_mutant_reads_the_same_wherever_it_stands(self):
        one = "void f() {\n  if (a < b)\n    c();\n}\n"
        other = "\n// more\n\n" + one.replace("  ", "    ")
        names = [[(m.kind, m.function, m.text) for m in mutations.mutants_of(t)]
                 for t in (one, other)]
        self.assertEqual(*names)


if __name__ == "__main__":
    unittest.main()
