"""HTTP servers that count their requests and answer some of them wrongly when they are told to."""

import collections
import contextlib
import datetime
import email.utils
import http.client
import http.server
import ipaddress
import os
import re
import socket
import ssl
import struct
import threading
import time
import urllib.parse

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec

# Longer than any test runs.
LONGEST_DELAY = 900

# `time`: of the answer, in seconds of the monotonic clock.
Request = collections.namedtuple("Request", "method path range status size time")
Answer = collections.namedtuple("Answer", "status headers body")


class Fault:
    """What goes wrong with each request whose method and path match, at most `times` times, after `after` good ones.

    `kind`: an HTTP status; "reset" or "truncated" in the middle of the body; "slow": half the body, then nothing until
    release(); "silent": nothing at all until then; or a function that is called before the answer is made.
    """

    def __init__(self, kind, method="GET", path="", times=None, after=0, text=b""):
        self.kind = kind
        self.method = method
        self.path = path
        self.times = times
        self.after = after
        self.text = text
        self.met = threading.Event()
        self.released = threading.Event()

    def release(self):
        self.released.set()

    def matches(self, method, path):
        return re.fullmatch(self.method, method) and self.path in path


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True

    def setup(self):
        if self.server.tls:
            self.request = self.server.tls.wrap_socket(self.request, server_side=True)
        super().setup()

    def finish(self):
        super().finish()
        # Of TLS, the server knows only the connection below it.
        self.request.close()

    def answer_request(self):
        sent = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        fault = self.server.take_fault(self.command, self.path)
        kind = fault.kind if fault else None
        if callable(kind):
            kind()
        if kind == "silent":
            fault.met.set()
            fault.released.wait(LONGEST_DELAY)
        if isinstance(kind, int):
            answer = Answer(kind, {"Content-Type": "application/xml"}, fault.text)
        else:
            answer = self.server.make_answer(self, sent)
        self.server.record(Request(self.command, self.path, self.headers.get("Range"), answer.status, len(answer.body),
                                   time.monotonic()))
        if fault:
            fault.met.set()
        self.send(answer, fault if kind in ("reset", "truncated", "slow") else None)

    do_GET = do_HEAD = do_PUT = do_POST = do_DELETE = answer_request

    def send(self, answer, fault):
        self.send_response_only(answer.status)
        for name, value in answer.headers.items():
            self.send_header(name, value)
        if "Content-Length" not in answer.headers:
            self.send_header("Content-Length", str(len(answer.body)))
        self.end_headers()
        if self.command == "HEAD":
            return
        if not fault:
            self.wfile.write(answer.body)
            return
        half = len(answer.body) // 2
        self.wfile.write(answer.body[:half])
        self.wfile.flush()
        self.close_connection = True
        if fault.kind == "reset":
            # Without lingering, closing sends a reset instead of an end.
            self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.connection.close()
        elif fault.kind == "slow":
            fault.released.wait(LONGEST_DELAY)
            self.wfile.write(answer.body[half:])

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    """A server on a free port of the loopback interface, as a context. Subclasses make its answers."""

    request_queue_size = 128

    def __init__(self, tls=None):
        super().__init__(("127.0.0.1", 0), Handler)
        self.tls = tls
        self.port = self.server_address[1]
        self._lock = threading.Lock()
        self._requests = []
        self._faults = []
        self._thread = threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        for fault in self._faults:
            fault.release()
        self.shutdown()
        self._thread.join()
        self.server_close()

    def handle_error(self, request, client_address):
        """A client that goes away ends its connection, nothing else."""

    def record(self, request):
        with self._lock:
            self._requests.append(request)

    def take_requests(self):
        """The requests since the last call."""
        with self._lock:
            taken, self._requests = self._requests, []
            return taken

    def take_fault(self, method, path):
        with self._lock:
            for fault in self._faults:
                if fault.matches(method, path):
                    if fault.after > 0:
                        fault.after -= 1
                    elif fault.times is None or fault.times > 0:
                        fault.times = None if fault.times is None else fault.times - 1
                        return fault
        return None

    @contextlib.contextmanager
    def faulty(self, *arguments, **more):
        fault = Fault(*arguments, **more)
        with self._lock:
            self._faults.append(fault)
        try:
            yield fault
        finally:
            fault.release()
            with self._lock:
                self._faults.remove(fault)


class FileServer(Server):
    """The files of a folder, whole or in ranges."""

    def __init__(self, folder, tls=None):
        super().__init__(tls)
        self.folder = folder
        self.url = f"{'https' if tls else 'http'}://127.0.0.1:{self.port}"

    def make_answer(self, request, _):
        path = os.path.join(self.folder, urllib.parse.unquote(request.path.split("?")[0]).lstrip("/"))
        try:
            with open(path, "rb") as file:
                info = os.fstat(file.fileno())
                headers = {"Accept-Ranges": "bytes", "ETag": f'"{info.st_ino}-{info.st_mtime_ns}"',
                           "Last-Modified": email.utils.formatdate(info.st_mtime, usegmt=True)}
                if request.command == "HEAD":
                    return Answer(200, {**headers, "Content-Length": str(info.st_size)}, b"")
                wanted = re.fullmatch(r"bytes=(\d+)-(\d*)", request.headers.get("Range", ""))
                if not wanted:
                    return Answer(200, headers, file.read())
                first = int(wanted[1])
                last = min(int(wanted[2] or info.st_size - 1), info.st_size - 1)
                if first > last:
                    return Answer(416, {"Content-Range": f"bytes */{info.st_size}"}, b"")
                file.seek(first)
                return Answer(206, {**headers, "Content-Range": f"bytes {first}-{last}/{info.st_size}"},
                              file.read(last - first + 1))
        except OSError:
            return Answer(404, {}, b"")


class Front(Server):
    """Passes every request on to the server behind it, unchanged, so that signatures stay right."""

    def __init__(self, port_behind):
        super().__init__()
        self.port_behind = port_behind
        self.endpoint = f"127.0.0.1:{self.port}"
        self._behind = threading.local()

    def make_answer(self, request, sent):
        connection = getattr(self._behind, "connection", None)
        if connection is None:
            connection = self._behind.connection = http.client.HTTPConnection("127.0.0.1", self.port_behind)
        try:
            connection.putrequest(request.command, request.path, skip_host=True, skip_accept_encoding=True)
            for name, value in request.headers.items():
                connection.putheader(name, value)
            connection.endheaders(sent or None)
            response = connection.getresponse()
            body = response.read()
        except (OSError, http.client.HTTPException):
            connection.close()
            return Answer(502, {}, b"")
        headers = {name: value for name, value in response.getheaders()
                   if name not in ("Connection", "Transfer-Encoding") and
                   (request.command == "HEAD" or name != "Content-Length")}
        return Answer(response.status, headers, body)


def make_certificate(folder):
    """A certificate for 127.0.0.1 that is its own authority: the server's context, and the certificate's file."""
    key = ec.generate_private_key(ec.SECP256R1())
    name = x509.Name([x509.NameAttribute(x509.NameOID.COMMON_NAME, "mduckdb tests")])
    now = datetime.datetime.now(datetime.timezone.utc)
    certificate = (x509.CertificateBuilder().subject_name(name).issuer_name(name).public_key(key.public_key())
                   .serial_number(x509.random_serial_number())
                   .not_valid_before(now - datetime.timedelta(days=1)).not_valid_after(now + datetime.timedelta(days=1))
                   .add_extension(x509.SubjectAlternativeName([x509.IPAddress(ipaddress.ip_address("127.0.0.1"))]), False)
                   .add_extension(x509.BasicConstraints(ca=True, path_length=None), True)
                   .sign(key, hashes.SHA256()))
    public, private = os.path.join(folder, "certificate.pem"), os.path.join(folder, "key.pem")
    with open(public, "wb") as file:
        file.write(certificate.public_bytes(serialization.Encoding.PEM))
    with open(private, "wb") as file:
        file.write(key.private_bytes(serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                                     serialization.NoEncryption()))
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(public, private)
    return context, public
