#!/usr/bin/env python3
"""Sends frames into an interface that is one end of a veth pair, and tells which ones came through.

Usage: send_frames.py INTERFACE PEER [SOURCE DESTINATION tcp|udp PORT]. Frames enter INTERFACE as
they are sent out of PEER; what its ingress filter lets through is seen by a socket behind it. With
two IPv4 addresses, a protocol and a destination port it is that packet alone. Needs CAP_NET_RAW.
"""

import socket
import struct
import sys

ETH_IPV4, ETH_ARP, ETH_EXPERIMENT = 0x0800, 0x0806, 0x88B5
STATION, LOST_STATION, ROUTER = "02:00:5e:00:53:10", "02:00:5e:00:53:af", "02:00:5e:00:53:01"


def mac(text):
    return bytes.fromhex(text.replace(":", ""))


def ipv4(source, destination, protocol, port):
    payload = struct.pack("!HH", 40000, port) + bytes(16)
    return struct.pack(
        "!BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 1, 0, 64, protocol, 0,
        socket.inet_aton(source), socket.inet_aton(destination),
    ) + payload


TCP, UDP = 6, 17
# What it is, source MAC address, EtherType, payload.
FRAMES = [
    ("a DNS query", STATION, ETH_IPV4, ipv4("192.0.2.7", "203.0.113.53", UDP, 53)),
    ("a DNS query to another server", STATION, ETH_IPV4, ipv4("192.0.2.7", "198.51.100.1", UDP, 53)),
    ("a DNS query of the lost station", LOST_STATION, ETH_IPV4,
     ipv4("192.0.2.7", "203.0.113.53", UDP, 53)),
    ("HTTPS to the world", STATION, ETH_IPV4, ipv4("192.0.2.7", "198.51.100.1", TCP, 443)),
    ("HTTPS to the inside", STATION, ETH_IPV4, ipv4("192.0.2.7", "10.1.2.3", TCP, 443)),
    ("telnet to the world", STATION, ETH_IPV4, ipv4("192.0.2.7", "198.51.100.1", TCP, 23)),
    ("ARP for the router", STATION, ETH_ARP, bytes(28)),
    ("an experiment to the router", STATION, ETH_EXPERIMENT, bytes(46)),
]


def listen(interface, ether_type):
    # A socket for one EtherType sees a frame behind the ingress filter, one for all in front of it.
    listener = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ether_type))
    listener.bind((interface, ether_type))
    listener.settimeout(0.1)
    return listener


def comes_through(interface, peer, frame, ether_type):
    with listen(interface, ether_type) as listener, \
            socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
        sender.bind((peer, 0))
        sender.send(frame)
        try:
            return listener.recv(2048) == frame
        except TimeoutError:
            return False


def main():
    if len(sys.argv) not in (3, 7):
        sys.exit(__doc__)
    interface, peer, *packet = sys.argv[1:]
    frames = FRAMES
    if packet:
        protocol = {"tcp": TCP, "udp": UDP}[packet[2]]
        payload = ipv4(packet[0], packet[1], protocol, int(packet[3]))
        frames = [(" ".join(packet), STATION, ETH_IPV4, payload)]
    for name, source, ether_type, payload in frames:
        frame = mac(ROUTER) + mac(source) + struct.pack("!H", ether_type) + payload
        passed = comes_through(interface, peer, frame, ether_type)
        print(f"{'passed' if passed else 'dropped':8} {name}")


if __name__ == "__main__":
    main()
