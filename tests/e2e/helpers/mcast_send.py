# Sends datagrams to the notification group (FF01::1, port 4873) with hop
# limit 1, or to port 4873 at another address (--to: an IPv4 or IPv6 address,
# a group with its %interface). Usage: mcast_send.py [--to ADDRESS] [HEX...];
# an empty HEX sends a zero-length datagram. Without HEX arguments it sends one
# for each line of hex on stdin, until its end.
import socket
import sys

args = sys.argv[1:]
to, payloads = (args[1], args[2:]) if args[:1] == ["--to"] else ("ff01::1", args)
family, _, _, _, address = socket.getaddrinfo(to, 4873, type=socket.SOCK_DGRAM)[0]
sock = socket.socket(family, socket.SOCK_DGRAM)
if family == socket.AF_INET6:
    sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 1)
for payload in payloads or sys.stdin:
    data = bytes.fromhex(payload)
    assert sock.sendto(data, address) == len(data)
