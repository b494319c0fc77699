# gdb pretty-printers for vx::String, vx::StringVector and vx::Path.
#
# gdb loads an installed copy by itself; otherwise: (gdb) source vx_gdb.py

import gdb
import gdb.printing


def block(handle, head):
    """Returns the head of the block that a handle refers to, or None if the handle is empty."""
    implementation = handle["implementation_"]
    if int(implementation) == 0:
        return None
    return implementation.cast(gdb.lookup_type(head).pointer())


def behind(head, element):
    """Returns a pointer to what follows the head of a block."""
    return (head + 1).cast(gdb.lookup_type(element).const().pointer())


class String:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        text = block(self.value, "vx::String::Text")
        if text is None:
            return ""
        return behind(text, "char").lazy_string(length=int(text["length"]))

    def display_hint(self):
        return "string"


class StringVector:
    def __init__(self, value):
        self.items = block(value, "vx::StringVector::Items")
        self.size = 0 if self.items is None else int(self.items["size"])

    def to_string(self):
        return "vx::StringVector of length %d" % self.size

    def children(self):
        if self.size == 0:
            return
        first = behind(self.items, "vx::String")
        for index in range(self.size):
            yield "[%d]" % index, (first + index).dereference()

    def display_hint(self):
        return "array"


class Path:
    def __init__(self, value):
        self.text = String(value["path_"])

    def to_string(self):
        return self.text.to_string()

    def display_hint(self):
        return "string"


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("vx")
    collection.add_printer("String", "^vx::String$", String)
    collection.add_printer("StringVector", "^vx::StringVector$", StringVector)
    collection.add_printer("Path", "^vx::Path$", Path)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
