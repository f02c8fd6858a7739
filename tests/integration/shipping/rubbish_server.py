"""Accepts TLS connections on a Unix socket and answers each with rubbish of another kind.

    rubbish_server.py SOCKET CERTIFICATE KEY
"""

import socket
import ssl
import sys

ANSWERS = [
    b"",
    b"\0" * 4096,
    b"220 mail.example.com ESMTP\r\n",
    b"HTTP/1.1 999999 \r\n\r\n",
    b"HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\n",
    b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nzz",
    b"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nshort",
    b"HTTP/1.1 503 " + b"x" * 300_000 + b"\r\n\r\n",
]


def answer(connection, text):
    connection.settimeout(5)
    try:
        connection.recv(65536)
        connection.sendall(text)
        connection.unwrap()
    except OSError:
        pass
    connection.close()


def main():
    path, certificate, key = sys.argv[1:]
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen()
    print("ready", flush=True)
    count = 0
    while True:
        plain, _ = listener.accept()
        try:
            answer(context.wrap_socket(plain, server_side=True), ANSWERS[count % len(ANSWERS)])
        except OSError:
            plain.close()
        count += 1


main()
