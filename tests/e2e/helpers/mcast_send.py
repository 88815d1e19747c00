"""Sends datagrams to the notification group (FF01::1, port 4873) with hop
limit 1. Usage: mcast_send.py [--gap SECONDS] HEX [HEX...]; an empty HEX
argument sends a zero-length datagram. GAP seconds pass between two sends."""
import argparse
import socket
import time

GROUP = "ff01::1"
PORT = 4873


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--gap", type=float, default=0.0)
    parser.add_argument("payloads", nargs="+")
    args = parser.parse_args()
    sock = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 1)
    for i, payload in enumerate(args.payloads):
        if i and args.gap:
            time.sleep(args.gap)
        data = bytes.fromhex(payload)
        sent = sock.sendto(data, (GROUP, PORT))
        assert sent == len(data)


if __name__ == "__main__":
    main()
