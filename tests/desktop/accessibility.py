# SPDX-License-Identifier: Apache-2.0
"""Reads and operates windows through AT-SPI, like a screen reader."""

import os
import subprocess

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

from session import check, wait_for  # noqa: E402


def start_bus():
    """Call it before starting the programs. The bus ends with the session."""
    os.environ["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
    bus = subprocess.Popen(
        ["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    Atspi.init()
    return bus


def _label_of(node):
    for relation in node.get_relation_set():
        if relation.get_relation_type() == Atspi.RelationType.LABELLED_BY:
            return relation.get_target(0).get_name()
    return ""


class Application:
    """The windows of one process."""

    def __init__(self, process):
        self._process = process

    def find(self, role, name, within=None):
        """The first visible node with that role and name, or None. The name is a text or a
        predicate. It is also compared with the node's label, because a combo box has the name of
        its current choice."""
        matches = name if callable(name) else lambda text: text == name
        for node in self._nodes(within):
            try:
                if (node.get_role_name() == role
                        and (matches(node.get_name()) or matches(_label_of(node)))
                        and node.get_state_set().contains(Atspi.StateType.SHOWING)):
                    return node
            except GLib.Error:
                # The node was removed after it was listed.
                pass
        return None

    def wait_for(self, role, name, within=None):
        return wait_for(f'the {role} "{name}"', lambda: self.find(role, name, within),
                        self._process)

    def wait_until_closed(self, role, name):
        wait_for(f'the {role} "{name}" to close', lambda: not self.find(role, name),
                 self._process)

    def centre_of(self, role, name):
        """The centre of the node on the screen."""
        extents = self.wait_for(role, name).get_extents(Atspi.CoordType.SCREEN)
        return extents.x + extents.width // 2, extents.y + extents.height // 2

    def text_of(self, name):
        """The text of the visible document with that name, or None."""
        node = self.find("text", name)
        return node and Atspi.Text.get_text(node, 0, -1)

    def press(self, role, name, action=None):
        """Performs the named action of the node, or else its first one."""
        node = self.wait_for(role, name)
        count = node.get_n_actions()
        names = [node.get_action_name(index) for index in range(count)]
        check(names, f'the {role} "{name}" has no action')
        node.do_action(names.index(action) if action else 0)
        return node

    def describe(self):
        """All visible nodes, for the output of a failed test."""
        lines = []
        for node in self._nodes(None):
            try:
                if node.get_state_set().contains(Atspi.StateType.SHOWING):
                    lines.append(f"{node.get_role_name()}: {node.get_name()}")
            except GLib.Error:
                pass
        return "\n".join(lines)

    def _root(self):
        desktop = Atspi.get_desktop(0)
        for index in range(desktop.get_child_count()):
            application = desktop.get_child_at_index(index)
            if application is not None and application.get_process_id() == self._process.pid:
                return application
        return None

    def _nodes(self, within):
        waiting = [within or self._root()]
        while waiting:
            node = waiting.pop(0)
            if node is None:
                continue
            yield node
            try:
                node.clear_cache()
                waiting.extend(
                    node.get_child_at_index(index) for index in range(node.get_child_count()))
            except GLib.Error:
                pass
