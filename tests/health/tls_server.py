"""An HTTPS server on the loopback interface for the tests of the certificate client.

Usage: tls_server.py CERTIFICATE KEY [reset]

Prints its port, then one line for every request that came whole. Answers each with a certificate of health; with
"reset" it breaks every connection as soon as it is established, and prints "reset".
"""

import socket
import ssl
import struct
import sys

ANSWER = (
    b'{"ok": true, "certificate_id": "TC-TLS", '
    b'"certificate_url": "https:\\/\\/host.example\\/c\\/TC-TLS", "issued_at": "2026-03-01T10:00:00Z"}'
)


def read_request(connection):
    data = b""
    while b"\r\n\r\n" not in data:
        data += connection.recv(65536) or exit_client()
    head, body = data.split(b"\r\n\r\n", 1)
    lines = head.decode("ascii").split("\r\n")
    headers = dict(line.split(": ", 1) for line in lines[1:])
    while len(body) < int(headers["Content-Length"]):
        body += connection.recv(65536) or exit_client()
    return lines[0], body


def exit_client():
    raise OSError("the client has left")


def serve(connection, reset):
    if reset:
        # Without a farewell, and with whatever the client has sent unread.
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        print("reset", flush=True)
        return
    first_line, body = read_request(connection)
    print(first_line, len(body), flush=True)
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\nConnection: close\r\n\r\n" % len(ANSWER) + ANSWER)


def main():
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(sys.argv[1], sys.argv[2])
    listener = socket.create_server(("127.0.0.1", 0))
    print(listener.getsockname()[1], flush=True)
    while True:
        client, _ = listener.accept()
        try:
            with context.wrap_socket(client, server_side=True) as connection:
                serve(connection, sys.argv[3:] == ["reset"])
        except OSError:
            # Clients that do not trust the certificate leave during the handshake.
            client.close()


main()
