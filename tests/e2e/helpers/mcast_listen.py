# Listens on the notification group (FF01::1, port 4873) and appends one line
# per datagram to the file named first: the hop limit it was sent with and its
# bytes in hex. Writes "ready" first, once the group is joined.
import socket
import sys

sock = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
# The daemon binds the same port with SO_REUSEADDR; both then get a copy.
sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
sock.bind(("::", 4873))
# The group's address and the interface index 0, the default one.
sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_JOIN_GROUP, socket.inet_pton(socket.AF_INET6, "ff01::1") + bytes(4))
# Looped back on the host, a datagram keeps the sender's hop limit, the only
# ancillary data asked for.
sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_RECVHOPLIMIT, 1)
with open(sys.argv[1], "a", buffering=1) as out:
    out.write("ready\n")
    while True:
        data, ancillary, _, _ = sock.recvmsg(4096, socket.CMSG_SPACE(4))
        out.write(f"{int.from_bytes(ancillary[0][2], sys.byteorder)} {data.hex()}\n")
