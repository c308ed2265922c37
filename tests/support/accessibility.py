#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Answers what a screen reader finds in the program: one line for each line of input.

text NAME WANTED...  the text of NAME, once it is WANTED, and at the latest after some seconds
place NAME           the middle of NAME on the screen, as "X Y"
cell TABLE ROW COLUMN   the middle of a cell
rows TABLE WANTED...    the texts of all cells, once they are WANTED, rows parted by "; "
windows WANTED...    the titles of all windows, sorted, parted by "; "

Names and wanted texts hold "_" in place of a blank.
"""
import sys
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

PATIENCE = 10  # seconds


def children(node):
    found = (node.get_child_at_index(i) for i in range(node.get_child_count()))
    return [each for each in found if each is not None]


def program():
    for each in children(Atspi.get_desktop(0)):
        if each.get_name() == "velor":
            return each
    raise LookupError("the program")


def find(node, name, is_table):
    if node.get_name() == name and is_table == (node.get_role() == Atspi.Role.TABLE):
        return node
    if node.get_role() == Atspi.Role.TABLE:
        return None  # of many cells
    for each in children(node):
        found = find(each, name, is_table)
        if found is not None:
            return found
    return None


def named(name, is_table=False):
    found = find(program(), name, is_table)
    if found is None:
        raise LookupError(name)
    return found


def text_of(name):
    node = named(name)
    if "Text" in node.get_interfaces():
        return Atspi.Text.get_text(node, 0, -1)
    return node.get_description()


def cells(table):
    node = named(table, True)
    return "; ".join(
        " ".join(
            Atspi.Table.get_accessible_at(node, row, column).get_name() or "-"
            for column in range(Atspi.Table.get_n_columns(node))
        )
        for row in range(Atspi.Table.get_n_rows(node))
    )


def windows():
    return "; ".join(
        sorted(
            each.get_name()
            for each in children(program())
            if each.get_state_set().contains(Atspi.StateType.SHOWING)
        )
    )


def middle(node):
    frame = Atspi.Component.get_extents(node, Atspi.CoordType.SCREEN)
    return f"{frame.x + frame.width // 2} {frame.y + frame.height // 2}"


def once(wanted, read):
    end = time.monotonic() + PATIENCE
    while True:
        try:
            found = read()
        except (LookupError, GLib.Error) as error:  # not there yet
            found = f"? {error}"
        if found == wanted or time.monotonic() > end:
            return found
        time.sleep(0.02)


def place(read):
    end = time.monotonic() + PATIENCE
    while True:
        try:
            return middle(read())
        except (LookupError, AttributeError, GLib.Error):
            if time.monotonic() > end:
                raise
            time.sleep(0.02)


def answer(words):
    words = [word.replace("_", " ") for word in words]
    if words[0] == "windows":
        return once(" ".join(words[1:]), windows)
    name = words[1]
    if words[0] == "place":
        return place(lambda: named(name))
    if words[0] == "cell":
        row, column = int(words[2]), int(words[3])
        return place(lambda: Atspi.Table.get_accessible_at(named(name, True), row, column))
    reader = {"text": text_of, "rows": cells}[words[0]]
    return once(" ".join(words[2:]), lambda: reader(name))


Atspi.init()
for line in sys.stdin:
    print(answer(line.split()), flush=True)
