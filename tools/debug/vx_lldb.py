# SPDX-License-Identifier: MIT
#
# lldb formatters for vx::String, vx::StringVector and vx::Path.
#
#   (lldb) command script import vx_lldb.py

import json

import lldb


def block(handle, head):
    """Returns the head of the block that a handle refers to, or None if the handle is empty."""
    implementation = handle.GetChildMemberWithName("implementation_")
    if implementation.GetValueAsUnsigned() == 0:
        return None
    return implementation.Cast(handle.GetTarget().FindFirstType(head).GetPointerType())


def address_after(head):
    """Returns the address of the data after the head of a block."""
    return head.GetValueAsUnsigned() + head.GetType().GetPointeeType().GetByteSize()


def member(head, name):
    return head.GetChildMemberWithName(name).GetValueAsUnsigned()


def string_summary(value, _):
    text = block(value.GetNonSyntheticValue(), "vx::String::Text")
    if text is None:
        return '""'
    error = lldb.SBError()
    data = value.GetProcess().ReadMemory(address_after(text), member(text, "length"), error)
    if error.Fail():
        return "<%s>" % error
    return json.dumps(data.decode("utf-8", "backslashreplace"), ensure_ascii=False)


def path_summary(value, internal):
    return string_summary(value.GetNonSyntheticValue().GetChildMemberWithName("path_"), internal)


def string_vector_summary(value, _):
    items = block(value.GetNonSyntheticValue(), "vx::StringVector::Items")
    return "size=%d" % (0 if items is None else member(items, "size"))


class StringVectorChildren:
    def __init__(self, value, _):
        self.value = value
        self.update()

    def update(self):
        self.items = block(self.value, "vx::StringVector::Items")
        self.size = 0 if self.items is None else member(self.items, "size")
        self.element = self.value.GetTarget().FindFirstType("vx::String")

    def num_children(self):
        return self.size

    def get_child_index(self, name):
        return int(name.strip("[]"))

    def get_child_at_index(self, index):
        address = address_after(self.items) + index * self.element.GetByteSize()
        return self.value.CreateValueFromAddress("[%d]" % index, address, self.element)


def __lldb_init_module(debugger, _):
    for command in (
        "type summary add -w vx -F vx_lldb.string_summary vx::String",
        "type summary add -w vx -F vx_lldb.path_summary vx::Path",
        "type summary add -w vx -e -F vx_lldb.string_vector_summary vx::StringVector",
        "type synthetic add -w vx -l vx_lldb.StringVectorChildren vx::StringVector",
        "type category enable vx",
    ):
        debugger.HandleCommand(command)
