#!/usr/bin/env python3
"""Makes the manual pages of section 3 from the public headers: one page a module, and a link page for each name in it.

Usage: make_pages.py INCLUDE_DIR OUTPUT_DIR DATE
"""
import pathlib
import re
import sys

import comments
import headers
import mdoc

MODULES = ("simplog", "miscfunc", "conffile", "fileio", "socket", "sysinfo", "tracer", "links")


def main(include, output, date):
    modules = [headers.read(pathlib.Path(include) / f"{module}.h") for module in MODULES]
    functions = {function.name for module in modules for function in module.functions()}
    folder = pathlib.Path(output)
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("*.3"):
        old.unlink()
    for module in modules:
        page = f"korvex_{module_name(module)}"
        (folder / f"{page}.3").write_text(module_page(module, date, functions), encoding="utf-8")
        for name in names(module):
            (folder / f"{name}.3").write_text(f".so man3/{page}.3\n", encoding="utf-8")


def module_name(module):
    return module.name.removesuffix(".h")


def names(module):
    """All that a user may ask for by its name."""
    functions = [function.name for function in module.functions()]
    variables = [variable_name(variable) for variable in module.variables]
    return functions + variables + [record.name for record in module.records]


def variable_name(variable):
    return re.search(r"(\w+)(?:\[\d+\])?$", variable.declaration)[1]


def type_name(kind):
    """The name that a typedef gives: to a pointer to a function, or what stands last."""
    return re.search(r"\(\*(\w+)\)|(\w+)$", kind.declaration).expand(r"\1\2")


def module_page(module, date, functions):
    name = module_name(module)
    page = mdoc.Page(f"KORVEX_{name.upper()}", 3, date, functions)
    write_name(page, module, name)
    write_synopsis(page, module)
    about = write_description(page, module, name)
    write_records(page, module)
    write_variables(page, module)
    for group in module.groups:
        write_group(page, group)
    write_results(page, about)
    write_example(page, about)
    write_see_also(page, name)
    return page.text()


def summary(module, name):
    return module.comment.first_sentence().removeprefix(f"{name}: ")


def write_name(page, module, name):
    page.section("Name")
    listed = [f"korvex_{name}", *names(module)]
    for entry in listed[:-1]:
        page.macro(".Nm", entry, ",")
    page.macro(".Nm", listed[-1])
    page.description(summary(module, name))
    page.section("Library")
    page.words("System library for network-attached storage appliances (`libkorvex_util`, `-lkorvex_util`)")


def write_synopsis(page, module):
    page.section("Synopsis")
    page.macro(".In", module.name)
    for kind in module.types:
        page.macro(".Vt", f"{kind.declaration};")
    for variable in module.variables:
        page.macro(".Vt", f"{variable.declaration};")
    for group in module.groups:
        if group.title and group.functions:
            page.subsection(group.title)
        for function in group.functions:
            page.macro(".Ft", function.result)
            page.macro(".Fo", function.name)
            for declaration, _ in function.parameters:
                page.macro(".Fa", declaration.replace("...", "\\&..."))
            page.macro(".Fc")


def write_description(page, module, name):
    """Returns the parts of the header's comment that have sections of their own: errors, and the example."""
    page.section("Description")
    first, *parts = module.comment.blocks
    rest = first.text.partition(". ")[2]
    parts = ([comments.Paragraph(rest)] if rest else []) + parts
    errors = [part for part in parts if isinstance(part, comments.Paragraph) and part.label == "Errors:"]
    example = own_blocks(parts)[-1:]

    page.words(f"\0{name}\0 is a module of the library that")
    page.macro(".Xr", "korvex_util", "7")
    page.words(f"describes: {summary(module, name)}.")
    page.break_paragraph()
    write_parts(page, [part for part in parts if part not in errors + example])
    return errors, example


def own_blocks(parts):
    """The literal blocks that no text before them announces."""
    pairs = zip(parts, parts[1:])
    return [part for before, part in pairs if isinstance(part, comments.Literal) and
            not (isinstance(before, comments.Paragraph) and before.text.endswith(":"))]


def write_parts(page, parts):
    """Blocks, of which neighbours with labels are a list."""
    rules = []
    for part in [*parts, None]:
        if isinstance(part, comments.Paragraph) and part.label.endswith(":"):
            rules.append(part)
            continue
        if rules:
            page.tagged([(rule.label.rstrip(":"), sentence(rule.text)) for rule in rules], macro="Em")
            rules = []
        if part is not None:
            page.break_paragraph()
            page.block(part)


def write_records(page, module):
    if not module.records and not module.types:
        return
    page.section("Records and types")
    for record in module.records:
        page.subsection(record.name)
        page.blocks(record.comment.blocks)
        page.tagged([(entry.declaration, sentence(entry.text)) for entry in record.fields], macro="Vt")
    for kind in module.types:
        page.subsection(type_name(kind))
        page.words(sentence(kind.comment.blocks[0].text))


def write_variables(page, module):
    if not module.variables:
        return
    page.section("Global variables")
    page.tagged([(variable_name(variable), sentence(variable.comment.blocks[0].text)) for variable in module.variables],
                macro="Va")


def sentence(text):
    """A remark on a field as a text of its own."""
    return text[0].upper() + text[1:] + ("" if text.endswith((".", ":")) else ".")


def write_group(page, group):
    page.section(group.title or "Functions")
    page.blocks(group.comment.blocks)
    if group.constants:
        page.tagged([(constant.declaration, sentence(constant.comment.blocks[0].text)) for constant in group.constants],
                    macro="Dv")
    for function in group.functions:
        write_function(page, function)


def write_function(page, function):
    page.subsection(function.name)
    page.within(function)
    page.macro(".Fn", function.name, *(name or "\\&..." for declaration, name in function.parameters
                                      if declaration != "void"))
    page.break_paragraph()
    page.blocks(function.comment.blocks)
    page.break_paragraph()
    if function.comment.arguments:
        page.tagged([(", ".join(argument.names), sentence(argument.text)) for argument in function.comment.arguments],
                    macro="Fa", widest=mdoc.WIDEST_ARGUMENT)
    write_returned(page, function.comment.result)
    for note in function.comment.notes:
        page.break_paragraph()
        page.block(note)
    page.within(None)


def write_returned(page, result):
    if not result:
        return
    first, *rest = result
    page.break_paragraph()
    page.words(f"Returns {first.text}")
    for part in rest:
        if isinstance(part, comments.Paragraph):
            page.words(part.text[0].upper() + part.text[1:])
        else:
            page.block(part)


def write_results(page, about):
    errors, _ = about
    page.section("Return values")
    for part in errors:
        page.words(part.text)
        page.break_paragraph()
    page.words("What each function returns is told where it is described.")


def write_example(page, about):
    _, example = about
    if example:
        page.section("Examples")
        page.blocks(example)


def write_see_also(page, name):
    page.section("See also")
    pages = [("korvex", "1")] + [(f"korvex_{module}", "3") for module in sorted(MODULES) if module != name]
    for title, section in pages:
        page.macro(".Xr", title, section, ",")
    page.macro(".Xr", "korvex_util", "7")


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
