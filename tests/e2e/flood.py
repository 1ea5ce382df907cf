"""Frames without pause into the ports of a network namespace, and what becomes of them.

      peer0 ══► port0 ──(mover A)──► peer1 ══► port1 ──► counted     (and B the other way round)

A frame is of a kind, by its IPv4 destination address. What the filters of a port let through goes up
to the namespace's own IP layer, where it is counted and dropped; kinds A and B pass the other port
first. Arrivals are counted in front of all filters, by a packet socket.
"""

import ctypes
import json
import mmap
import os
import signal
import socket
import struct
import subprocess
import time

VICTIM, WITNESS, MOVER_A, MOVER_B = KINDS = ("victim", "witness", "mover-a", "mover-b")
ADDRESSES = dict(zip(KINDS, ("10.0.0.1", "10.1.0.1", "10.0.0.2", "10.0.0.3")))
# Where each kind enters, with a frame of the witness for each.
ENTRIES = {VICTIM: "peer0", MOVER_A: "peer0", MOVER_B: "peer1"}
ETH_P_ALL, SOL_PACKET, PACKET_STATISTICS, SO_ATTACH_FILTER, PACKET_OUTGOING = 3, 263, 6, 26, 4
BATCH = 64
LAB = """
table ip lab {
  %s
  chain in { type filter hook prerouting priority raw;
    %s
  }
}
""" % ("\n  ".join(f"counter {k} {{}}" for k in KINDS),
       "\n    ".join(f'iifname "port*" ip daddr {a} counter name {k} drop' for k, a in ADDRESSES.items()))
FORWARD = """
table netdev lab {
  chain port0 { type filter hook ingress device port0 priority 300; ip daddr %s fwd to peer1; }
  chain port1 { type filter hook ingress device port1 priority 300; ip daddr %s fwd to peer0; }
}
""" % (ADDRESSES[MOVER_A], ADDRESSES[MOVER_B])


def run(command, **options):
    subprocess.run(command, shell=True, check=True, **options)


def add_ports(*names):
    for name in names:
        peer = name.replace("port", "peer")
        run(f"ip link add {name} type veth peer name {peer} && ip link set {peer} up"
            f" && ip link set {name} up")


def frame(kind):
    """UDP in a broadcast frame, so that the IP layer takes it; the witness is of another station."""
    source = bytes((2, 0, 0, 0, 0, 2 if kind == WITNESS else 1))
    address = socket.inet_aton(ADDRESSES[kind])
    ip = bytes((0x45, 0, 0, 32, 0, 1, 0, 0, 64, 17, 0, 0, 10, 9, 9, 9)) + address
    total = sum(struct.unpack("!10H", ip))
    checksum = 0xffff - (total % 0xffff or 0xffff)  # RFC 1071
    ip = ip[:10] + checksum.to_bytes(2, "big") + ip[12:]
    udp = bytes((4, 0, 4, 0, 0, 12, 0, 0, 1, 2, 3, 4))
    return b"\xff" * 6 + source + b"\x08\x00" + ip + udp


def await_(condition, seconds=30):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError("the flood does not flow")
        time.sleep(0.0001)


class Arrivals:
    """Counts frames of a kind that reach any port, whatever the filters make of them."""

    def __init__(self, kind):
        (address,) = struct.unpack("!I", socket.inet_aton(ADDRESSES[kind]))
        # Not those that a port sends; IPv4's destination; linux/filter.h has the numbers.
        code = [(0x30, 0, 0, 0xfffff004), (0x15, 3, 0, PACKET_OUTGOING), (0x20, 0, 0, 30),
                (0x15, 0, 1, address), (0x6, 0, 0, 1), (0x6, 0, 0, 0)]
        program = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *c) for c in code))
        self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        self.socket.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER,
                               struct.pack("HL", len(code), ctypes.addressof(program)))
        self.count = 0

    def read(self):
        """Since the beginning; the socket's buffer overflows, which does no harm to the count."""
        seen, _ = struct.unpack("II", self.socket.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))
        self.count += seen
        return self.count


class _Sender:
    """Sends a batch of one kind and the witness, alternately, by one system call."""

    class _IoVector(ctypes.Structure):
        _fields_ = [("base", ctypes.c_char_p), ("length", ctypes.c_size_t)]

    class _Message(ctypes.Structure):  # struct mmsghdr
        _fields_ = [("name", ctypes.c_void_p), ("name_length", ctypes.c_uint32),
                    ("vector", ctypes.c_void_p), ("vector_length", ctypes.c_size_t),
                    ("control", ctypes.c_void_p), ("control_length", ctypes.c_size_t),
                    ("flags", ctypes.c_size_t), ("sent", ctypes.c_size_t)]  # padded

    def __init__(self, kind):
        self.interface, self.socket = ENTRIES[kind], None
        self.send_many = ctypes.CDLL(None).sendmmsg
        self.vectors = [self._IoVector(f, len(f)) for f in (frame(kind), frame(WITNESS))]
        self.messages = (self._Message * BATCH)()
        for i, message in enumerate(self.messages):
            message.vector, message.vector_length = ctypes.addressof(self.vectors[i % 2]), 1

    def send(self):
        """Once the interface is there, and up."""
        try:
            if self.socket is None:
                self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
                self.socket.bind((self.interface, 0))
            sent = self.send_many(self.socket.fileno(), self.messages, BATCH, 0)
        except OSError:
            sent = -1
        if sent < 0 and self.socket is not None:
            self.socket.close()
            self.socket = None


class Flood:
    """A process that sends; one kind at a time. Counts what came in and what came through."""

    def __init__(self):
        run("nft -f -", input=LAB.encode())
        self.arrivals = {kind: Arrivals(kind) for kind in KINDS}
        self.wanted = mmap.mmap(-1, 2)  # number of the kind to send, 0 for none; the one being sent
        self.parent = os.getpid()
        self.process = os.fork()
        if self.process == 0:
            self._send_on()

    def _send_on(self):
        senders = {}
        try:
            while os.getppid() == self.parent:
                number = self.wanted[0]
                self.wanted[1] = number
                if number == 0:
                    time.sleep(0.0001)
                    continue
                if number not in senders:
                    senders[number] = _Sender(list(ENTRIES)[number - 1])
                for _ in range(16):
                    senders[number].send()
        finally:
            os._exit(1)

    def send(self, kind):
        """From now on frames of this kind only, none for None; those sent before are through."""
        number = list(ENTRIES).index(kind) + 1 if kind else 0
        if number == self.wanted[0]:
            return
        self.wanted[0] = number
        await_(lambda: self.wanted[1] == number)
        time.sleep(0.005)
        if not kind:
            self._settle()

    def send_some(self, kind):
        """Begins to send, and returns when some have arrived: the kernel opens the queues of a new
        interface some time after it is up."""
        before = self.arrivals[kind].read()
        self.send(kind)
        await_(lambda: self.arrivals[kind].read() > before + BATCH)

    def _settle(self):
        before = None
        while before != (now := self.arrived()):
            before = now
            time.sleep(0.02)

    def arrived(self):
        """Frames of each kind that reached a port so far."""
        return {kind: counter.read() for kind, counter in self.arrivals.items()}

    def passed(self):
        """Frames of each kind that came through so far."""
        listed = json.loads(subprocess.run(["nft", "-j", "list", "counters", "table", "ip", "lab"],
                                           check=True, capture_output=True).stdout)
        counters = [o["counter"] for o in listed["nftables"] if "counter" in o]
        return {c["name"]: c["packets"] for c in counters}

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        for counter in self.arrivals.values():
            counter.socket.close()
