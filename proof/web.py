# A web server that can answer as no good one does, and that can be away.
import contextlib
import socketserver
import threading
import time
from dataclasses import dataclass


# The bytes that GET and HEAD receive before the connection ends.
@dataclass
class Answer:
    get: bytes
    head: bytes = b''       # empty: the head of `get`
    pause: float = 0        # seconds after each kilobyte
    delivers: bool = False  # the server notes who asked for it


def status(first, *headers, body=b''):
    lines = [f'HTTP/1.1 {first}', *headers, 'Connection: close', '', '']
    return '\r\n'.join(lines).encode() + body


# A server that has ranges and says that its file has so many bytes.
def sized(size, body=b'', *headers):
    return status('200 OK', 'Accept-Ranges: bytes', f'Content-Length: {size}', *headers, body=body)


def whole(body, *headers):
    return sized(len(body), body, *headers)


# Serves `answers`, by path without query, on a port of 127.0.0.1 that it keeps.
def empty(first, *headers):
    return status(first, 'Content-Length: 0', *headers)


class WebServer:
    def __init__(self):
        self.answers = {}
        self.delivered = []  # the noted addresses, in their order
        self._server = None
        self._port = 0
        self.come_back()

    def url(self, path):
        return f'http://127.0.0.1:{self._port}/{path}'

    def come_back(self):
        if not self._server:
            self._server = _Server(('127.0.0.1', self._port), _Handler)
            self._server.web = self
            self._port = self._server.server_address[1]
            threading.Thread(target=self._server.serve_forever, args=(0.02,), daemon=True).start()

    def go_away(self):
        self._server.shutdown()
        self._server.server_close()
        self._server = None


class _Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
    block_on_close = False
    request_queue_size = 100


class _Handler(socketserver.StreamRequestHandler):
    def handle(self):
        with contextlib.suppress(OSError, ValueError):  # the client ends its connection
            method, address, _ = self.rfile.readline().decode().split(' ', 2)
            while self.rfile.readline().strip():
                pass
            answer = self.server.web.answers.get(address[1:].partition('?')[0], NOT_FOUND)
            if method == 'HEAD':
                head, end, _ = (answer.head or answer.get).partition(b'\r\n\r\n')
                self.wfile.write(head + end)
                return
            if answer.delivers:
                self.server.web.delivered.append(address)
            for at in range(0, len(answer.get), 1024):
                self.wfile.write(answer.get[at:at + 1024])
                time.sleep(answer.pause)


NOT_FOUND = Answer(empty('404 Not Found'))
