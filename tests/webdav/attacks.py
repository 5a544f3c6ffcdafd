"""What harms a server, sent to the real one: after each the server is alive, has not grown, and nothing outside changed."""
import os
import re
import socket
import subprocess
import threading
import time
import urllib.parse
import xml.etree.ElementTree as ElementTree

from dav import expect, run, status, token_of

MOST_MEMORY = 64 << 20
HEAD = b' HTTP/1.1\r\nHost: localhost\r\n'
CHUNKED = b'PUT /Docs/chunks.txt' + HEAD + b'Transfer-Encoding: chunked\r\n\r\n'


def memory():
    with open(f'/proc/{os.environ["SERVER"]}/status') as file:
        return int(re.search(r'VmRSS:\s*(\d+)', file.read())[1]) << 10


def flood(dav, start, part, parts=4000):
    """Sends start and then part again and again, until the server ends it. The first line of the answer; empty if there is none."""
    with socket.create_connection(('127.0.0.1', dav.port), timeout=30) as connection:
        try:
            connection.sendall(start)
            for _ in range(parts):
                connection.sendall(part)
        except OSError:
            pass
        try:
            return connection.recv(65536).split(b'\r\n')[0]
        except OSError:
            return b''


def prop(names):
    return f'<propfind xmlns="DAV:"><prop>{names}</prop></propfind>'


def patch(value):
    return f'<propertyupdate xmlns="DAV:"><set><prop>{value}</prop></set></propertyupdate>'


# (request, the statuses that are fine). Each is sent as it is; 0: the connection ends without an answer.
LONG = 'n' * 100_000
REQUESTS = [
    *((('GET', urllib.parse.quote(path)), wanted) for path, wanted in
      (('/' + '~/' * 1000, {414}), ('/' + 'é/' * 1000, {414}), ('/Docs/' + '~/' * 120, {404}), ('/Docs/' + 'é/' * 120, {404}),
       ('/Docs/x' + '/~' * 8000, {414}))),
    (('PROPFIND', '/Docs/', prop(f'<x:a xmlns:x="{LONG}"/>')), {400}),
    (('PROPFIND', '/Docs/', prop(f'<b xmlns:x="{LONG}" ' + ' '.join(f'x:a{i}=""' for i in range(2000)) + '/>')), {400}),
    *((('PROPFIND', '/Docs/', prop(''.join(names))), {413}) for names in
      ([f'<a{i} xmlns="{i}{"n" * 400}"/>' for i in range(50)], [f'<{"a" * 400}{i}/>' for i in range(50)], [f'<a{i}/>' for i in range(201)], ' ' * 200_000)),
    *((('PROPFIND', '/Docs/', body), {400}) for body in
      (prop('<a/>' * 30000), prop('<a>' * 1000 + '</a>' * 1000), '<!DOCTYPE x [<!ENTITY a "aaaa"><!ENTITY b "&a;&a;&a;">]>' + prop('&b;'))),
    (('BREW', '/'), {501}),
    *(((method, '/Docs/a.txt?x', b'x', {'Destination': '/Docs/b.txt'}), {400}) for method in
      ('PUT', 'DELETE', 'MKCOL', 'COPY', 'MOVE', 'PROPPATCH', 'LOCK', 'UNLOCK')),
    (('MOVE', '/Docs/a.txt', None, {'Destination': '/Docs/b?.txt'}), {400}),
    (('PUT', '/Docs/a.txt', b'x', {'Content-Encoding': 'gzip'}), {415}),
    (('PROPPATCH', '/Docs/a.txt', patch(''.join(f'<p{i}/>' for i in range(3000)))), {507}),
    (('PROPPATCH', '/Docs/a.txt', patch(f'<p xmlns="urn:x">{LONG}</p>')), {507}),
    *((('PROPPATCH', '/Docs/a.txt', patch(value)), {400}) for value in
      ('<z:b:c xmlns:z="urn:z"/>', '<z:b xmlns:z="urn:z" z:c:d=""/>', '<xml:b/>', '<q xmlns="urn:q">\ufffe</q>', '<q>&#x1;</q>')),
    (('GET', '/Docs/a.txt', None, {'If': '(<a>)' * 6000}), {400}),
    (('GET', '/Docs/a.txt', None, {'If': ''.join(f'</Docs/{i}.txt> (["x"])' for i in range(17))}), {400}),
    (('MOVE', '/Docs/a.txt', None, {'Destination': '/Docs/' + 'x/' * 500}), {414}),
]


def everything_is_refused(dav):
    status(dav('PUT', '/Docs/a.txt', b'content'), 201, 204)
    idle = memory()
    for (method, path, *rest), wanted in REQUESTS:
        body, fields = (rest + [None, {}])[0], (rest + [None, {}])[1] if len(rest) > 1 else {}
        answer = dav(method, path, body.encode() if isinstance(body, str) else body, Depth='1', **fields)
        expect(answer.status in wanted, f'{method} {path[:40]} {str(body)[:80]}: {answer.status} {answer.body[:100]!r}')
    for start, part, wanted in ((CHUNKED + b'1;', b'e' * 100_000, (b' 413 ', b' 400 ')), (CHUNKED, b'1;' + b'e' * 60_000 + b'\r\nx\r\n', (b' 413 ',)),
                                (b'PUT /Docs/a.txt' + HEAD + b'\r\n', b'', (b' 411 ',)),
                                (CHUNKED + b'0\r\n', b'T: ' + b't' * 30_000 + b'\r\n', (b' 413 ', b' 400 ')),
                                (b'BREW /' + HEAD + b'Transfer-Encoding: chunked\r\n\r\n', b'1;' + b'e' * 60_000 + b'\r\nx\r\n', (b' 501 ',)),
                                (b'GET /' + HEAD, b'X: ' + b'x' * 30_000 + b'\r\n', (b' 431 ',))):
        line = flood(dav, start, part)
        expect(line == b'' or any(number in line for number in wanted), f'{start[:60]}: {line}')
        expect(memory() - idle < MOST_MEMORY, f'{start[:60]}: {memory() - idle} bytes more')
    ElementTree.fromstring(status(dav('PROPFIND', '/Docs/', Depth='1'), 207).body)
    expect(status(dav('GET', '/Docs/a.txt'), 200).body == b'content', 'what was refused changed something')
    expect(memory() - idle < MOST_MEMORY, f'{memory() - idle} bytes more')


def what_is_kept_is_limited(dav):
    idle = memory()
    status(dav('PUT', '/Docs/a.txt', b'content'), 201, 204)
    status(dav.lock('/Docs/a.txt', owner='o' * 1_000_000), 507, 413)
    places = ['/Docs/'] * 10 + ['/Docs/a.txt'] * 10
    for order in (places, places[::-1]):  # what holds a file from above counts as well, whichever comes first
        answers = [dav.lock(place, 'shared', 'infinity', owner='o' * 900) for place in order]
        expect([answer.status for answer in answers] == [200] * 16 + [507] * 4, f'locks of one file: {[answer.status for answer in answers]}')
        for place, answer in zip(order, answers[:16]):
            status(dav('UNLOCK', place, Lock_Token=token_of(answer)), 204)
    status(dav('MKCOL', '/Docs/kept/'), 201)
    statuses = set()
    for number in range(200):
        status(dav('PUT', f'/Docs/kept/{number}.log', b''), 201)
        statuses.add(dav('PROPPATCH', f'/Docs/kept/{number}.log', patch(f'<p xmlns="urn:x">{"v" * 60_000}</p>')).status)
    expect(statuses == {207, 507}, f'properties of all: {statuses}')
    status(dav('COPY', '/Docs/kept/', Destination=dav.url('/Docs/again/')), 507)
    expect(memory() - idle < MOST_MEMORY, f'{memory() - idle} bytes more')
    status(dav('DELETE', '/Docs/kept/'), 204)
    status(dav('PROPPATCH', '/Docs/a.txt', patch('<p xmlns="urn:x">v</p>')), 207)


def links_lead_nowhere(dav):
    outside = dav.folder + '/outside'
    os.makedirs(outside + '/sub')
    for name in ('f.txt', 'sub/g.txt', 'f.txt.zip'):
        with open(f'{outside}/{name}', 'w') as file:
            file.write('outside')
    before = subprocess.run(['find', outside, '-ls'], capture_output=True, check=True).stdout
    for folder in ('Docs', 'Plain'):
        native = f'{dav.folder}/{folder}'
        os.makedirs(native + '/holder')
        for link, target in (('folder', outside), ('holder/folder', outside), ('f.txt', outside + '/f.txt'),
                             ('d.txt.zip', outside + '/f.txt.zip'), ('holder/f.log', outside + '/f.txt')):
            os.symlink(target, f'{native}/{link}')
        status(dav('MKCOL', f'/{folder}/other/'), 201)
        for path in ('folder/', 'folder/f.txt', 'folder/sub/g.txt', 'f.txt', 'd.txt', 'holder/folder/f.txt', 'holder/f.log'):
            for method, wanted in (('GET', {404}), ('HEAD', {404}), ('PROPFIND', {404}), ('PUT', {409}), ('PROPPATCH', {404}), ('LOCK', {409}),
                                   ('MKCOL', {409}), ('COPY', {404}), ('MOVE', {404}), ('DELETE', {204, 403, 404})):
                body = {'PUT': b'x', 'PROPPATCH': patch('<p/>').encode(), 'LOCK': b'<lockinfo xmlns="DAV:"><lockscope><exclusive/></lockscope>'
                        b'<locktype><write/></locktype></lockinfo>'}.get(method)
                answer = dav(method, f'/{folder}/{path}', body, Depth='0', Destination=dav.url(f'/{folder}/other/x'))
                expect(answer.status in wanted, f'{method} {folder}/{path}: {answer.status} {answer.body!r}')
            status(dav('COPY', f'/{folder}/other/', Destination=dav.url(f'/{folder}/{path}')), 409)
        expect(f'/{folder}/folder/' not in dav.listing(f'/{folder}/'), 'a link is listed')
        status(dav('COPY', f'/{folder}/holder/', Destination=dav.url(f'/{folder}/copied/')), 207)
        status(dav('MOVE', f'/{folder}/other/', Destination=dav.url(f'/{folder}/holder/')), 204, 207)
        dav('DELETE', f'/{folder}/holder/')
        after = subprocess.run(['find', outside, '-ls'], capture_output=True, check=True).stdout
        expect(after == before, f'{folder}: outside there is\n{after.decode()}')
        for name in os.listdir(native):
            if os.path.islink(f'{native}/{name}'):
                os.remove(f'{native}/{name}')
        dav('DELETE', f'/{folder}/copied/')


def short_name_of(native):
    """The other name by which the platform finds the file; the same when there is none."""
    listing = subprocess.run([*os.environ['WINE_RUN'].split(), 'cmd', '/c', 'dir', '/x', 'Z:' + native.replace('/', '\\')],
                             capture_output=True, text=True, check=False).stdout
    found = re.search(r'(\S+~\S+)\s+' + re.escape(os.path.basename(native)), listing)
    return found[1] if found else os.path.basename(native)


def a_name_is_the_file_that_it_stands_for(dav):
    status(dav('MKCOL', '/Docs/averylongfolder/'), 201)
    for name in ('averylongname.log', 'averylongdocument.txt'):
        path = '/Docs/averylongfolder/' + name
        status(dav('PUT', path, b'content'), 201)
        native = f'{dav.folder}{path}' + ('' if name.endswith('.log') else '.zip')
        short = short_name_of(native)
        short = short if name.endswith('.log') else short.rsplit('.', 1)[0]
        expect('~' in short, f'{native} has no short name: the test tests nothing')
        token = token_of(dav.lock(path))
        short_folder = short_name_of(dav.folder + '/Docs/averylongfolder')
        for other in (f'/Docs/averylongfolder/{short}', f'/Again/averylongfolder/{name}', f'/Again/{short_folder}/{short}', f'/Docs/{short_folder}/{name}'):
            status(dav('PUT', other, b'lost'), 423)
            status(dav('PUT', other, b'lost', If_None_Match='*'), 412)
            status(dav('DELETE', other), 423)
            status(dav.lock(other), 423)
            status(dav('MOVE', '/Docs/a.txt', Destination=dav.url(other), Overwrite='F'), 423, 412)
            expect(dav('GET', other).body == b'content', f'{other} is another file')
        status(dav('UNLOCK', path, Lock_Token=token), 204)
        for other in (f'/Docs/averylongfolder/{short}', f'/Again/averylongfolder/{name}'):
            status(dav('MOVE', path, Destination=dav.url(other)), 403)
            answer = status(dav.lock(other), 200)
            expect(dav('GET', path).body == b'content', 'a lock emptied it')
            status(dav('PUT', path, b'lost'), 423)
            status(dav('UNLOCK', path, Lock_Token=token_of(answer)), 204)
    status(dav('DELETE', '/Docs/averylongfolder/'), 204)


def long_paths_are_paths_like_others(dav):
    for folder in ('/Docs/', '/Plain/'):
        before = os.listdir(dav.folder + folder)
        top, deep, name = folder + 'a/', folder + 'l' * 220 + '/', 'n' * 150 + '.txt'
        for path in (top, deep, deep + 'm' * 220 + '/'):
            status(dav('MKCOL', path), 201)
        status(dav('PUT', top + name, b'content'), 201)
        for method, source, target in (('COPY', top, deep + 'b/'), ('MOVE', top, deep + 'c/'), ('MOVE', deep + 'b/' + name, deep + 'c/n.txt')):
            status(dav(method, source, Destination=dav.url(target)), 201)
        for path in (deep + 'c/' + name, deep + 'c/n.txt'):
            expect(dav('GET', path).body == b'content' and path in dav.listing(deep + 'c/'), f'{path} is lost')
        status(dav('DELETE', deep), 204)
        expect(os.listdir(dav.folder + folder) == before, 'left')
    answer = dav('PUT', '/Docs/' + 'n' * 251 + '.txt', b'no room for the name of a container')
    expect(answer.status >= 400 and dav('GET', '/Docs/' + 'n' * 251 + '.txt').status == 404, 'a name that is too long')


def a_tree_keeps_its_members_apart(dav):
    """Two that have one name where they go: in two letter cases, or as a conflict copy beside a file of the name that it would get."""
    plain = dav.folder + '/Plain/twins/'
    os.mkdir(plain)
    for name in ('c.log', 'C.log'):
        with open(plain + name, 'w') as file:
            file.write('content of ' + name)
    for overwrite, wanted in (('F', 412), ('T', 409)):
        status(dav('MOVE', '/Plain/twins/c.log', Destination=dav.url('/Plain/twins/C.log'), Overwrite=overwrite), wanted)
    for method, target in (('COPY', '/Docs/copied/'), ('MOVE', '/Docs/moved/')):
        status(dav(method, '/Plain/twins/', Destination=dav.url(target)), 207)
    found = b''.join(open(os.path.join(folder, name), 'rb').read() for top in (plain, dav.folder + '/Docs/moved')
                     for folder, _, names in os.walk(top) for name in names)
    expect(all(b'content of ' + name in found for name in (b'c.log', b'C.log')), f'left: {found}')
    os.makedirs(dav.folder + '/Docs/moved/.HalvaneCloud')  # as a killed run leaves it
    with open(dav.folder + '/Docs/moved/.HalvaneCloud/container-7ffffff0-1-1.part', 'w') as file:
        file.write('begun')
    status(dav('DELETE', '/Docs/moved/'), 204)
    for path in ('/Plain/twins/', '/Docs/copied/'):
        dav('DELETE', path)


def a_mount_folder_inside_another_stays(dav):
    status(dav('PUT', '/Inner/kept.txt', b'kept'), 201)
    for method, path, target in (('DELETE', '/Other/inner/', '/'), ('MOVE', '/Other/inner/', '/Docs/moved/'), ('COPY', '/Plain/', '/Other/inner/')):
        status(dav(method, path, Destination=dav.url(target)), 403)
    expect(status(dav('GET', '/Inner/kept.txt'), 200).body == b'kept', 'it is empty')


def it_is_told_where_something_is_stored(dav):
    status(dav('PUT', '/Docs/a.txt', b'content'), 201, 204)
    with open(dav.folder + '/Docs/a.txt.zip', 'rb') as container:
        answer = status(dav('PUT', '/Plain/b.txt.zip', container.read()), 201)
    path = answer.headers['Location']
    expect(path == '/Plain/b.txt.HvcConflicted' and dav('GET', path).body == b'content', path)
    with open(dav.folder + path, 'wb') as planted:
        planted.write(b'planted')
    expect(dav.listing('/Plain/').count(path) == 1, 'two of one name are listed')
    status(dav('DELETE', path), 204)
    os.rename(dav.folder + '/Plain/b.txt.zip', dav.folder + '/Docs/b.txt.zip')
    path, other = '/Docs/b.txt.HvcConflicted', '/Docs/b.txt'
    token = token_of(dav.lock(path))
    status(dav('PUT', path, b'new', If=f'({token})'), 204)
    status(dav('UNLOCK', path, Lock_Token=token), 204)
    expect(dav('GET', other).body == b'new', 'lost')
    status(dav('DELETE', other), 204)


def slow_and_idle_clients_hold_up_nobody(dav):
    status(dav('PUT', '/Plain/large.bin', b'1' * 30_000_000), 201, 204)
    reader = socket.create_connection(('127.0.0.1', dav.port))
    reader.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
    reader.sendall(b'GET /Plain/large.bin' + HEAD + b'\r\n')
    got, stop = [reader.recv(65536)], threading.Event()

    def read():
        while not stop.wait(0.25):
            got.append(reader.recv(4096))

    thread = threading.Thread(target=read)
    thread.start()
    status(dav('PUT', '/Plain/large.bin', b'2'), 204)
    stop.set()
    thread.join()
    expect(b'2' not in b''.join(got).split(b'\r\n\r\n', 1)[1], 'a mixture')
    reader.close()
    before = memory()
    body = b'PROPFIND /' + HEAD + b'Content-Length: 130000\r\n\r\n' + b' ' * 129_999
    for start, number in ((b'', 50), (b'GET / HT', 100), (body, 25)):  # the last ones are being answered, and make no room
        waiting = [socket.create_connection(('127.0.0.1', dav.port), timeout=30) for _ in range(number)]
        for connection in waiting:
            try:
                connection.sendall(start)
            except OSError:
                pass  # made room
        status(dav('GET', '/'), 200)
        expect(memory() - before < MOST_MEMORY, f'{number} connections: {memory() - before} bytes more')
        for connection in waiting:
            connection.close()
    uploads = [socket.create_connection(('127.0.0.1', dav.port), timeout=30) for _ in range(34)]
    for connection in uploads:
        connection.sendall(b'PUT /Plain/upload.bin' + HEAD + b'Content-Length: 90000000\r\n\r\n')
    for _ in range(100):
        for connection in uploads:
            try:
                connection.sendall(b'x' * 20_000)
            except OSError:
                pass
        try:
            if dav('GET', '/').status == 200:
                break
        except OSError:
            pass
        time.sleep(0.2)
    else:
        expect(False, 'uploads that are not slow take all places')
    for connection in uploads:
        connection.close()


def a_full_disk_is_told(dav):
    full = dav.folder + '/Plain/full'
    os.makedirs(full)
    if subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=4m', 'none', full], capture_output=True, check=False).returncode != 0:
        return print('        (this machine cannot mount a small disk)')
    try:
        status(dav('PUT', '/Plain/full/x.bin', b'x' * 8_000_000), 507)
        status(dav('PUT', '/Plain/x.bin', b'x' * 8_000_000), 201)
        status(dav('COPY', '/Plain/x.bin', Destination=dav.url('/Plain/full/x.bin')), 507)
        status(dav('MKCOL', '/Docs/moved/'), 201)
        status(dav('PUT', '/Docs/moved/x.txt', b'x' * 8_000_000), 201)
        answer = status(dav('MOVE', '/Docs/moved/', Destination=dav.url('/Plain/full/moved/')), 207)
        expect(b' 507 ' in answer.body and len(dav('GET', '/Docs/moved/x.txt').body) == 8_000_000, answer.body)
        for path in ('/Plain/x.bin', '/Docs/moved/', '/Plain/full/moved/'):
            status(dav('DELETE', path), 204)
        expect(os.listdir(full) == [], f'left: {os.listdir(full)}')
    finally:
        subprocess.run(['umount', full], check=True)


def listed_is_what_can_be_asked_for(dav):
    for name in ('con.txt', 'ends.', 'back\\slash', 'co:lon', 'n' * 250, 'tab\there', 'esc\x1b[31m.txt', '\uffff.txt'):
        with open(f'{dav.folder}/Plain/{name}', 'w'):
            pass
    os.symlink(dav.folder + '/server.log', dav.folder + '/Plain/link.txt')
    os.mkfifo(dav.folder + '/Plain/pipe.txt')
    answer = status(dav('PROPFIND', '/Plain/', prop('<displayname/><resourcetype/>'), Depth='1'), 207)
    for href in answer.xml().iter('{DAV:}href'):
        status(dav('GET', href.text), 200)
    status(dav('GET', '/Plain/'), 200)
    for name in os.listdir(dav.folder + '/Plain'):
        if not os.path.isdir(f'{dav.folder}/Plain/{name}'):
            os.remove(f'{dav.folder}/Plain/{name}')
    dav.raw(b'GET /\x1b[31m\xc2\x9b31m' + HEAD + b'\r\n')
    with open(dav.folder + '/server.log', 'rb') as log:
        expect(not re.search(rb'[\x00-\x08\x0e-\x1f]|\xc2[\x80-\x9f]', log.read()), 'a terminal would act on the log')


def the_limits_are_as_told(_):
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    with open(root + '/host/webdav/Limits.h') as code, open(root + '/docs/security.md') as page:
        limits, told = dict(re.findall(r'^constexpr \S+ (\w+)(?:{| = )([^;}]*)', code.read(), re.M)), page.read()
    expect(len(limits) > 30, 'the limits are not found')
    for name, value in limits.items():
        expect(f'| `{name}` | {value} |' in told, f'docs/security.md does not tell that {name} is {value}')


if __name__ == '__main__':
    run((everything_is_refused, what_is_kept_is_limited, links_lead_nowhere, a_name_is_the_file_that_it_stands_for,
         long_paths_are_paths_like_others, a_tree_keeps_its_members_apart, a_mount_folder_inside_another_stays,
         it_is_told_where_something_is_stored, slow_and_idle_clients_hold_up_nobody, a_full_disk_is_told, listed_is_what_can_be_asked_for, the_limits_are_as_told))
