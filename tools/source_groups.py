"""Which sources can be compiled as one: read by tools/lint and tools/group_sources."""

import re

# Names that each program defines once.
ENTRY_POINTS = ("main", "LLVMFuzzerTestOneInput")

# What a source defines at the start of a line. It needn't be exact: a compiler finds the rest.
DEFINITIONS = re.compile(
    r"^(?:(?:struct|class|enum(?: class)?|union|using) (\w+) *[^;\n]*[={]"
    r"|TEST\w*\((\w+, *\w+)\)"
    r"|(?!namespace)(?:\w[^\n(={;]*[ *&])(\w+)(?:\[[^\n]*\])? *[({=])", re.MULTILINE)


def definitions(text):
    """The names that a source defines outside classes and functions."""
    return {name for names in DEFINITIONS.findall(text) for name in names
            if name and name not in ENTRY_POINTS}
