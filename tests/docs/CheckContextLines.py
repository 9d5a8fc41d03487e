#!/usr/bin/env python3
"""Every public function of the library states its context in one fixed form.

    CheckContextLines.py <public header directory> <linker version script>

A public function is a function declared with ZYN_TS_EXPORT or inside an
extern "C" block of a public header, a public method of an exported class
(deleted ones aside) and a function-pointer slot of an exported class. Its
doc comment (the /// lines right before it) must hold exactly one Context
line, which may wrap over several comment lines:

    Context: <which threads>; tick function: <allowed ... | not allowed ...>;
    <waits for a running pass ... | does not wait for a running pass ...>.

or, for a slot or method that behaves exactly as a function stated elsewhere:

    Context: as CTickScheduler_Freeze().

where the named function must itself be a public function with a Context
line of the first form.

So that a declaration the parser does not recognise cannot slip through
unchecked, every function and variable the version script exports by its C
name, every C++ function it names, and every class X of `X::*` that a public
header defines must have been found in the headers.

Prints each function that breaks the rule and exits 1; exits 0 otherwise.
"""

import pathlib
import re
import sys

FULL_FORM = re.compile(
    r"Context: (?P<threads>[^;]+); tick function: (?P<tick>(?:not )?allowed\b[^;]*); "
    r"(?P<wait>(?:waits|does not wait) for a running (?:fast )?pass)"
)
REFERENCE_FORM = re.compile(r"Context: as (?P<target>\w+)(?:\(\))?\.")
SLOT = re.compile(r"\(\s*\*\s*(\w+)\s*\)\s*\(")
NAME_BEFORE_PARENTHESIS = re.compile(r"(~?\w+)\s*$")
ACCESS = re.compile(r"^(public|protected|private)\s*:$")
SCOPE_KEYWORDS = ("class", "struct", "union", "namespace", "enum", "extern")


class Function:
    def __init__(self, header, line, name, doc):
        self.header = header
        self.line = line
        self.name = name
        self.doc = " ".join(doc.split())

    def where(self):
        return f"{self.header}:{self.line}: {self.name}"


class Scope:
    def __init__(self, kind, name="", exported=False, access="public"):
        self.kind = kind
        self.name = name
        self.exported = exported
        self.access = access


def strip_line_comment(code):
    """Drops a trailing // comment (there are no string literals with // in
    the headers' declarations)."""
    position = code.find("//")
    return code if position < 0 else code[:position]


def function_name(statement):
    """The declared name of a function declaration, or None for anything else
    (data, type aliases, deleted functions, assertions)."""
    text = " ".join(statement.split())
    if not text or "(" not in text:
        return None
    if text.startswith(("using ", "typedef ", "friend ", "static_assert", "template")) or "= delete" in text:
        return None
    slot = SLOT.search(text)
    if slot and text.index(slot.group(0)) == text.index("("):
        return slot.group(1)
    head = text[: text.index("(")]
    if "operator" in head:
        return head[head.index("operator") :].strip()
    match = NAME_BEFORE_PARENTHESIS.search(head)
    return match.group(1) if match else None


def scope_for(statement):
    """The scope a statement ending in '{' opens, or None when the brace opens
    a function body or a brace initializer."""
    text = " ".join(statement.split())
    words = text.replace("{", " ").split()
    if not words or words[0] not in SCOPE_KEYWORDS:
        return None
    exported = "ZYN_TS_EXPORT" in words
    names = [word for word in words[1:] if re.fullmatch(r"\w+", word) and word != "ZYN_TS_EXPORT"]
    name = names[0] if names else ""
    if words[0] == "extern":
        return Scope("extern C")
    if words[0] == "class":
        return Scope("class", name, exported, "private")
    if words[0] in ("struct", "union"):
        return Scope("class", name, exported, "public")
    return Scope(words[0], name)


def parse_header(path, functions, variables, classes):
    """Adds the header's public functions, exported variables and exported
    classes to the collections."""
    header = path.name
    scopes = []
    pending_doc = []
    statement = ""
    statement_doc = []
    statement_line = 0
    skip_depth = 0  # inside a function body or a brace initializer
    emit_after_skip = None

    def in_public_scope():
        if not scopes:
            return False
        top = scopes[-1]
        if top.kind == "extern C":
            return True
        return top.kind == "class" and top.exported and top.access == "public"

    def finish(text, doc, line):
        name = function_name(text)
        flat = " ".join(text.split())
        exported = "ZYN_TS_EXPORT" in flat
        if name is None:
            if exported and "(" not in flat:
                variables.add(re.findall(r"\w+", flat.rstrip(";"))[-1])
            return
        top = scopes[-1] if scopes else None
        if top is not None and top.kind == "class":
            if not in_public_scope():
                return
            functions.append(Function(header, line, f"{top.name}::{name}", "\n".join(doc)))
            classes.setdefault(top.name, []).append(name)
        elif exported or in_public_scope():
            functions.append(Function(header, line, name, "\n".join(doc)))

    for number, raw in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        stripped = raw.strip()
        if skip_depth == 0 and not statement.strip():
            if stripped.startswith("///") and not stripped.startswith("///<"):
                pending_doc.append(stripped[3:].strip())
                continue
            if not stripped or stripped.startswith(("//", "#")):
                pending_doc = []
                continue
            access = ACCESS.match(strip_line_comment(stripped).strip())
            if access:
                if scopes:
                    scopes[-1].access = access.group(1)
                pending_doc = []
                continue
        code = strip_line_comment(raw)
        if skip_depth == 0 and not statement.strip() and code.strip():
            statement_doc = pending_doc
            statement_line = number
            pending_doc = []
        for character in code:
            if skip_depth > 0:
                if character == "{":
                    skip_depth += 1
                elif character == "}":
                    skip_depth -= 1
                    if skip_depth == 0 and emit_after_skip is not None:
                        finish(*emit_after_skip)
                        emit_after_skip = None
                        statement = ""
                continue
            if character == ";":
                if statement.strip():
                    finish(statement, statement_doc, statement_line)
                statement = ""
            elif character == "{":
                scope = scope_for(statement)
                if scope is not None:
                    scopes.append(scope)
                    statement = ""
                elif "(" in statement and not statement.rstrip().endswith("="):
                    # A function defined in the header: checked as declared.
                    skip_depth = 1
                    emit_after_skip = (statement, statement_doc, statement_line)
                else:
                    # A brace initializer: part of the statement.
                    skip_depth = 1
            elif character == "}":
                if scopes:
                    scopes.pop()
                statement = ""
            else:
                statement += character
        if statement.strip():
            statement += " "
        else:
            statement = ""


def exported_by_version_script(path):
    """C names, C++ function names and classes (X of X::*) the script exports."""
    c_names, cpp_functions, cpp_classes = set(), set(), set()
    in_cpp = False
    for raw in path.read_text(encoding="utf-8").splitlines():
        line = raw.strip()
        if line.startswith('extern "C++"'):
            in_cpp = True
            continue
        if in_cpp and line.startswith("}"):
            in_cpp = False
            continue
        if in_cpp:
            quoted = re.fullmatch(r'"(\w+)\(.*\)";', line)
            if quoted:
                cpp_functions.add(quoted.group(1))
            members = re.fullmatch(r"(\w+)::\*;", line)
            if members:
                cpp_classes.add(members.group(1))
            continue
        plain = re.fullmatch(r"(\w+);", line)
        if plain:
            c_names.add(plain.group(1))
    return c_names, cpp_functions, cpp_classes


def main(arguments):
    if len(arguments) != 3:
        print(__doc__.strip().splitlines()[2].strip(), file=sys.stderr)
        return 2
    header_directory = pathlib.Path(arguments[1])
    version_script = pathlib.Path(arguments[2])
    headers = sorted(header_directory.glob("*.h"))
    functions, variables, classes = [], set(), {}
    for header in headers:
        parse_header(header, functions, variables, classes)

    problems = []
    by_name = {}
    for function in functions:
        by_name.setdefault(function.name, function)

    # Nothing exported may escape the parser.
    defined_classes = set()
    for header in headers:
        defined_classes.update(
            re.findall(r"^\s*(?:class|struct)\s+(?:ZYN_TS_EXPORT\s+)?(\w+)", header.read_text(), re.M)
        )
    c_names, cpp_functions, cpp_classes = exported_by_version_script(version_script)
    for name in sorted(c_names - variables - set(by_name)):
        problems.append(f"{name}: exported by {version_script.name} but not found as a public function in the headers")
    for name in sorted(cpp_functions - set(by_name)):
        problems.append(f"{name}: exported by {version_script.name} but not found as a public function in the headers")
    for name in sorted((cpp_classes & defined_classes) - set(classes)):
        problems.append(f"{name}: exported by {version_script.name} but no public method of it found in the headers")

    def full_form(function):
        return FULL_FORM.search(function.doc)

    for function in functions:
        count = function.doc.count("Context:")
        if count == 0:
            problems.append(f"{function.where()}: no Context line")
            continue
        if count > 1:
            problems.append(f"{function.where()}: {count} Context lines, expected one")
            continue
        if full_form(function):
            continue
        reference = REFERENCE_FORM.search(function.doc)
        if reference:
            target = by_name.get(reference.group("target"))
            if target is None:
                problems.append(
                    f"{function.where()}: Context refers to {reference.group('target')}, "
                    "which is not a public function"
                )
            elif not full_form(target):
                problems.append(
                    f"{function.where()}: Context refers to {target.name}, whose own Context line is not in the fixed form"
                )
            continue
        problems.append(f"{function.where()}: the Context line is not in the fixed form")

    if problems:
        print("Public functions whose context is not stated in the fixed form, or that the check did not find:")
        for problem in problems:
            print(f"  {problem}")
        print(
            "The form: 'Context: <which threads>; tick function: <allowed ... | not allowed ...>; "
            "<waits | does not wait> for a running pass ...' or 'Context: as <function>().'"
        )
        return 1
    per_header = {}
    for function in functions:
        per_header[function.header] = per_header.get(function.header, 0) + 1
    summary = ", ".join(f"{header} {count}" for header, count in sorted(per_header.items()))
    print(f"{len(functions)} public functions state their context ({summary})")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
