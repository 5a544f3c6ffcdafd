"""A small WebDAV client for the tests, and their bookkeeping."""
import http.client
import os
import socket
import sys
import traceback
import urllib.parse
import xml.etree.ElementTree as ElementTree

D = '{DAV:}'


class Answer:
    def __init__(self, response, body):
        self.status, self.headers, self.body = response.status, response.headers, body

    def xml(self):
        return ElementTree.fromstring(self.body)


class Server:
    def __init__(self, port, folder):
        self.port, self.folder = port, folder  # folder: of the native mount folders

    def __call__(self, method, path, body=None, timeout=60, **headers):
        """One request on a connection of its own. Header names are written with _ for -."""
        connection = http.client.HTTPConnection('127.0.0.1', self.port, timeout=timeout)
        try:
            connection.request(method, path, body, {name.replace('_', '-'): value for name, value in headers.items()})
            response = connection.getresponse()
            return Answer(response, response.read())
        finally:
            connection.close()

    def raw(self, text, finish=True):
        """Sends bytes as they are and returns everything that comes back."""
        with socket.create_connection(('127.0.0.1', self.port), timeout=60) as connection:
            connection.sendall(text)
            if finish:
                connection.shutdown(socket.SHUT_WR)
            parts = []
            while part := connection.recv(65536):
                parts.append(part)
            return b''.join(parts)

    def url(self, path):
        return f'http://127.0.0.1:{self.port}{path}'

    def listing(self, folder):
        answer = self('PROPFIND', folder, Depth='1')
        return sorted(urllib.parse.unquote(href.text) for href in answer.xml().iter(D + 'href') if href.text != folder)

    def lock(self, path, scope='exclusive', depth='0', timeout='Second-600', owner='Ann', **headers):
        body = (f'<lockinfo xmlns="DAV:"><lockscope><{scope}/></lockscope><locktype><write/></locktype>'
                f'<owner>{owner}</owner></lockinfo>')
        return self('LOCK', path, body, Depth=depth, Timeout=timeout, **headers)


def token_of(answer):
    expect(answer.status in (200, 201), f'LOCK answered {answer.status} {answer.body!r}')
    return answer.headers['Lock-Token']


def expect(holds, text):
    if not holds:
        raise AssertionError(text)


def status(answer, *wanted):
    expect(answer.status in wanted, f'{answer.status} instead of {wanted}: {answer.body[:300]!r}')
    return answer


def run(tests):
    """Runs the tests, or those named as arguments, against the server of PORT."""
    server = Server(int(os.environ['PORT']), os.environ['FOLDER'])
    failures = 0
    for test in tests:
        if sys.argv[1:] and test.__name__ not in sys.argv[1:]:
            continue
        try:
            test(server)
            print('ok     ', test.__name__, flush=True)
        except Exception:
            failures += 1
            print('FAILED ', test.__name__)
            traceback.print_exc(file=sys.stdout)
    sys.exit(1 if failures else 0)
