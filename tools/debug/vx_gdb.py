# SPDX-License-Identifier: MIT
#
# gdb pretty-printers for vx::String, vx::StringVector and vx::Path.
#
# gdb loads an installed copy automatically. Otherwise: (gdb) source vx_gdb.py

import gdb
import gdb.printing


def block(handle):
    """Returns the length and the contents of the block of a handle, or 0 and None if it is empty."""
    implementation = handle["implementation_"]
    if int(implementation) == 0:
        return 0, None
    # The block starts with a virtual table pointer, the reference count, the length and the
    # capacity. Their types are not used, because they are incomplete without the library's debug
    # information.
    words = implementation.cast(gdb.lookup_type("char").pointer().pointer())
    return int(words[2]), words + 4


class String:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        length, contents = block(self.value)
        if contents is None:
            return ""
        return contents.cast(gdb.lookup_type("char").pointer()).lazy_string(length=length)

    def display_hint(self):
        return "string"


class StringVector:
    def __init__(self, value):
        self.size, self.contents = block(value)

    def to_string(self):
        return "vx::StringVector of length %d" % self.size

    def children(self):
        if self.size == 0:
            return
        first = self.contents.cast(gdb.lookup_type("vx::String").const().pointer())
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
