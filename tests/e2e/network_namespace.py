"""A network of the test's own."""

import ctypes
import os
import pathlib
import unittest

CLONE_NEWUSER, CLONE_NEWNET = 0x10000000, 0x40000000


def enter():
    """Takes this process into a network namespace of its own; skips the tests where it gets none.
    Who is not root is it in a user namespace (user_namespaces(7)), where there is no BPF."""
    libc = ctypes.CDLL(None, use_errno=True)
    user, group = os.geteuid(), os.getegid()
    if libc.unshare(CLONE_NEWNET) == 0:
        return
    if libc.unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0:
        raise unittest.SkipTest("no network namespace: " + os.strerror(ctypes.get_errno()))
    for name, text in (("setgroups", "deny"), ("uid_map", f"0 {user} 1"), ("gid_map", f"0 {group} 1")):
        pathlib.Path("/proc/self", name).write_text(text)


def has_tables():
    """Whether the kernel takes tables from here: not from a user namespace."""
    ids = pathlib.Path("/proc/self/uid_map").read_text().split()
    return ids[2] == "4294967295" and os.path.ismount("/sys/fs/bpf")
