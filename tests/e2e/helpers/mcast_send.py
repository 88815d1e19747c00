"""Sends datagrams to the notification group (FF01::1, port 4873) with hop
limit 1, or to port 4873 at another address (--to: an IPv4 or IPv6 address,
a group with its %interface). Usage: mcast_send.py [--to ADDRESS] [--gap
SECONDS] HEX [HEX...]; an empty HEX argument sends a zero-length datagram. GAP
seconds pass between two sends."""
import argparse
import socket
import time

GROUP = "ff01::1"
PORT = 4873


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--to", default=GROUP)
    parser.add_argument("--gap", type=float, default=0.0)
    parser.add_argument("payloads", nargs="+")
    args = parser.parse_args()
    family, _, _, _, address = socket.getaddrinfo(args.to, PORT, type=socket.SOCK_DGRAM)[0]
    sock = socket.socket(family, socket.SOCK_DGRAM)
    if family == socket.AF_INET6:
        sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 1)
    for i, payload in enumerate(args.payloads):
        if i and args.gap:
            time.sleep(args.gap)
        data = bytes.fromhex(payload)
        sent = sock.sendto(data, address)
        assert sent == len(data)


if __name__ == "__main__":
    main()
