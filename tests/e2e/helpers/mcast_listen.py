"""Listens on the notification group (FF01::1, port 4873) and appends one line
per datagram to OUTFILE: the hop limit it was sent with and its bytes in hex.
Writes "ready" first, once the group is joined."""
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
    # Looped back on the host, a datagram keeps the sender's hop limit.
    sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_RECVHOPLIMIT, 1)
    with open(outfile, "a", buffering=1) as out:
        out.write("ready\n")
        while True:
            data, ancillary, _, _ = sock.recvmsg(4096, socket.CMSG_SPACE(4))
            hops = [struct.unpack("@i", d)[0] for level, kind, d in ancillary
                    if (level, kind) == (socket.IPPROTO_IPV6, socket.IPV6_HOPLIMIT)]
            out.write(f"{hops[0]} {data.hex()}\n")


if __name__ == "__main__":
    main(sys.argv[1])
