"""A small WebDAV client for the tests, and their bookkeeping."""
import contextlib
import functools
import http.client
import inspect
import os
import pathlib
import socket
import sys
import time
import unittest
import urllib.parse
import xml.etree.ElementTree as ElementTree

OWNED = '<lockinfo xmlns="DAV:"><lockscope><{}/></lockscope><locktype><write/></locktype><owner>{}</owner></lockinfo>'


def prop(names):
    return f'<propfind xmlns="DAV:"><prop>{names}</prop></propfind>'


def patch(values):
    return f'<propertyupdate xmlns="DAV:"><set><prop>{values}</prop></set></propertyupdate>'


class Server:
    def __init__(self, port, folder):
        self.port, self.folder = port, folder  # folder: of the native mount folders

    def __call__(self, method, path, body=None, to=None, **fields):
        """One request on a connection of its own. Field names are written with _ for -; to is the path of the Destination."""
        fields = {name.replace('_', '-'): value for name, value in fields.items()} | ({'Destination': self.url(to)} if to else {})
        with contextlib.closing(http.client.HTTPConnection('127.0.0.1', self.port, timeout=60)) as connection:
            connection.request(method, path, body.encode() if isinstance(body, str) else body, fields)
            answer = connection.getresponse()
            answer.body = answer.read()
            return answer

    def raw(self, text):
        """Sends bytes as they are, and nothing more, and returns everything that comes back."""
        with self.connect() as connection:
            connection.sendall(text)
            connection.shutdown(socket.SHUT_WR)
            return b''.join(iter(lambda: connection.recv(65536), b''))

    def connect(self):
        return socket.create_connection(('127.0.0.1', self.port), timeout=30)

    def url(self, path):
        return f'http://127.0.0.1:{self.port}{path}'

    def native(self, path):
        return pathlib.Path(self.folder + path)

    def listing(self, folder):
        hrefs = ElementTree.fromstring(self('PROPFIND', folder, Depth='1').body).iter('{DAV:}href')
        return sorted(urllib.parse.unquote(href.text) for href in hrefs if href.text != folder)

    def holds(self, path, wanted):
        answer = status(self('GET', path), 200)
        expect(answer.body == wanted, f'{path} has {answer.body[:60]!r} instead of {wanted[:60]!r}')

    def lock(self, path, scope='exclusive', depth='0', timeout='Second-600', owner='Ann'):
        return self('LOCK', path, OWNED.format(scope, owner), Depth=depth, Timeout=timeout)

    @contextlib.contextmanager
    def locked(self, path):
        """Gives the token; what comes below is done before the unlock."""
        token = token_of(self.lock(path))
        yield token
        status(self('UNLOCK', path, Lock_Token=token), 204)

    def fresh(self, name, *members, top='/Docs/'):
        """A new folder for one test with folders, whose names end with a slash, and files, which hold their names."""
        folder = f'{top}{name}/'
        self('DELETE', folder)
        for member in ('', *members):
            status(self('MKCOL', folder + member) if member[-1:] in ('', '/') else self('PUT', folder + member, member), 201)
        return folder

    def both(self, name, *members):
        """The same where files are encrypted and where they are not."""
        return [self.fresh(name, *members, top=top) for top in ('/Docs/', '/Plain/')]


def token_of(answer):
    return status(answer, 200, 201).headers['Lock-Token']


def expect(holds, text):
    if not holds:
        raise AssertionError(text)


def status(answer, *wanted):
    expect(answer.status in wanted, f'{answer.status} instead of {wanted}: {answer.body[:300]!r}')
    return answer


def until(comes):
    """Waits for what the clock alone brings about."""
    for _ in range(100):
        if comes():
            return
        time.sleep(0.1)
    expect(False, 'it does not come')


def run():
    """Runs the program's functions of a server (dav) in their order, or those named as arguments, against the server of PORT."""
    server = Server(int(os.environ['PORT']), os.environ['FOLDER'])
    tests = [unittest.FunctionTestCase(functools.update_wrapper(functools.partial(test, server), test))
             for name, test in vars(sys.modules['__main__']).items()
             if inspect.isfunction(test) and list(inspect.signature(test).parameters) == ['dav'] and name in (sys.argv[1:] or [name])]
    sys.exit(not tests or not unittest.TextTestRunner(verbosity=2).run(unittest.TestSuite(tests)).wasSuccessful())
