"""Listens on the notification group (FF01::1, port 4873) and appends one line
per datagram to OUTFILE: its length and its bytes in hex. Writes "ready"
first, once the group is joined."""
import socket
import struct
import sys

GROUP = "ff01::1"
PORT = 4873


def main(outfile):
    sock = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    # The daemon binds the same port with SO_REUSEADDR; both then get a copy.
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.bind(("::", PORT))
    mreq = socket.inet_pton(socket.AF_INET6, GROUP) + struct.pack("@I", 0)
    sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_JOIN_GROUP, mreq)
    with open(outfile, "a", buffering=1) as out:
        out.write("ready\n")
        while True:
            data = sock.recv(4096)
            out.write(f"{len(data)} {data.hex()}\n")


if __name__ == "__main__":
    main(sys.argv[1])
