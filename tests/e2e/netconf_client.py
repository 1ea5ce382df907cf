"""A NETCONF client on a UNIX socket, written from RFC 6241 and 6242 with nothing but a socket.

It shares no code with the daemon, so that a mistake in the daemon's framing or messages cannot hide.
"""

import re
import socket
import xml.etree.ElementTree as ET

BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"
ACL = "urn:acl-app:acl"
FILTERS = "urn:acl-app:filters"
NAMESPACES = {"nc": BASE, "acl": ACL, "f": FILTERS}


class RpcError(Exception):
    """The errors of an <rpc-reply>: a list of dictionaries by element name without prefix."""

    def __init__(self, reply):
        self.errors = [
            {child.tag.split("}")[1]: (child.text or "") for child in error}
            for error in reply.findall("nc:rpc-error", NAMESPACES)
        ]
        super().__init__(str(self.errors))

    @property
    def tags(self):
        return [error["error-tag"] for error in self.errors]


class Session:
    def __init__(self, path, base_1_1=True):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(30)
        try:
            self.socket.connect(path)
        except OSError:
            self.socket.close()
            raise
        self.buffer = b""
        self.chunked = False
        self.message_id = 0
        version = "1.1" if base_1_1 else "1.0"
        self.send(
            f'<hello xmlns="{BASE}"><capabilities><capability>'
            f"urn:ietf:params:netconf:base:{version}</capability></capabilities></hello>"
        )
        self.hello = ET.fromstring(self.receive())
        self.session_id = int(self.hello.findtext("nc:session-id", None, NAMESPACES))
        self.chunked = base_1_1

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, message):
        data = message.encode()
        if self.chunked:  # in two chunks, for a decoder has to put up with that
            half = len(data) // 2
            framed = b"".join(b"\n#%d\n%s" % (len(p), p) for p in (data[:half], data[half:]) if p)
            self.socket.sendall(framed + b"\n##\n")
        else:
            self.socket.sendall(data + b"]]>]]>")

    def _need(self, size):
        while len(self.buffer) < size:
            data = self.socket.recv(1 << 16)
            if not data:
                raise ConnectionError("the server closed the session")
            self.buffer += data

    def _take(self, size):
        self._need(size)
        taken, self.buffer = self.buffer[:size], self.buffer[size:]
        return taken

    def _line(self):
        while b"\n" not in self.buffer:
            self._need(len(self.buffer) + 1)
        return self._take(self.buffer.index(b"\n") + 1)

    def receive(self):
        if not self.chunked:
            while b"]]>]]>" not in self.buffer:
                self._need(len(self.buffer) + 1)
            message = self._take(self.buffer.index(b"]]>]]>"))
            self._take(6)
            return message.decode()
        parts = []
        while True:
            assert self._take(2) == b"\n#"
            line = self._line()
            if line == b"#\n":
                return b"".join(parts).decode()
            assert re.fullmatch(rb"[1-9][0-9]*\n", line), line
            parts.append(self._take(int(line)))

    def rpc(self, operation):
        """Carries out an operation given as XML; returns the <rpc-reply> or raises RpcError."""
        self.message_id += 1
        self.send(f'<rpc xmlns="{BASE}" message-id="{self.message_id}">{operation}</rpc>')
        reply = ET.fromstring(self.receive())
        assert reply.tag == f"{{{BASE}}}rpc-reply", reply.tag
        assert reply.get("message-id") == str(self.message_id), reply.attrib
        if reply.find("nc:rpc-error", NAMESPACES) is not None:
            raise RpcError(reply)
        return reply

    def ok(self, operation):
        assert self.rpc(operation).find("nc:ok", NAMESPACES) is not None

    def edit(self, profiles="", others="", default="merge", target="running", options=""):
        """Edits the list of profiles, and `others` below /config/access-list."""
        lists = f"<acl-profile><ingress>{profiles}</ingress></acl-profile>" if profiles else ""
        self.ok(
            f"<edit-config><target><{target}/></target><default-operation>{default}"
            f'</default-operation>{options}<config xmlns:nc="{BASE}"><config xmlns="{ACL}">'
            f"<access-list>{lists}{others}</access-list></config></config></edit-config>"
        )

    def data(self, operation):
        return self.rpc(operation).find("nc:data", NAMESPACES)

    def get_config(self, source="running", filter=""):
        return self.data(f"<get-config><source><{source}/></source>{filter}</get-config>")

    def get(self, filter=""):
        return self.data(f"<get>{filter}</get>")

    def groups(self):
        """What is programmed: {"l2": [entry, ...], "l3": [...]}, an entry being a dictionary."""
        filters = self.get(f'<filter type="subtree"><filters xmlns="{FILTERS}"/></filter>')
        return {
            group.findtext("f:type", None, NAMESPACES): [
                {
                    "port": [port.text for port in entry.findall("f:port", NAMESPACES)],
                    "match": _leaves(entry.find("f:match", NAMESPACES)),
                    "action": _leaves(entry.find("f:action", NAMESPACES)),
                }
                for entry in group.findall("f:entry", NAMESPACES)
            ]
            for group in filters.findall("f:filters/f:group", NAMESPACES)
        }

    def used(self):
        """Filter entries in use: {"l2": n, "l3": n}."""
        resources = self.get(
            f'<filter><status xmlns="{ACL}"><acl-resources/></status></filter>'
        ).find("acl:status/acl:acl-resources", NAMESPACES)
        return {
            layer: int(resources.findtext(f"acl:{layer}/acl:used-entries", None, NAMESPACES))
            for layer in ("l2", "l3")
        }


def _leaves(element):
    return {} if element is None else {c.tag.split("}")[1]: c.text for c in element}


def profile(name, kind, priority, *entries):
    """An access list as XML; an entry is (priority, match XML, action XML)."""
    content = "".join(
        f"<access-list-entry><ace-priority>{p}</ace-priority><match>{match}</match>"
        f"<action>{action}</action></access-list-entry>"
        for p, match, action in entries
    )
    return (
        f"<access-list><acl-type>{kind}</acl-type><acl-name>{name}</acl-name>"
        f"<acl-priority-{kind}><priority>{priority}</priority></acl-priority-{kind}>{content}"
        "</access-list>"
    )


def interface(name, *profiles, operation="merge"):
    bound = "".join(f"<ingress>{p}</ingress>" for p in profiles)
    return (
        f'<interface nc:operation="{operation}"><interface-name>{name}</interface-name>{bound}'
        "</interface>"
    )


DENY = "<packet-handling><deny/></packet-handling>"
PERMIT = "<packet-handling><permit/></packet-handling>"
