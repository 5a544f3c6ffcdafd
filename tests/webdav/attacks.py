"""What harms a server, sent to the real one: after each the server is alive, has not grown, and nothing outside changed."""
import contextlib
import os
import pathlib
import re
import shutil
import socket
import subprocess
import urllib.parse
import xml.etree.ElementTree as ElementTree

from dav import OWNED, expect, patch, prop, run, status, token_of, until

MOST_MEMORY = 64 << 20
HEAD = b' HTTP/1.1\r\nHost: localhost\r\n'


def memory():
    return int(re.search(r'VmRSS:\s*(\d+)', pathlib.Path(f'/proc/{os.environ["SERVER"]}/status').read_text())[1]) << 10


def send(connection, *parts):
    """As far as the server takes it."""
    with contextlib.suppress(OSError):
        for part in parts:
            connection.sendall(part)


def flood(dav, start, part, parts=4000):
    """Sends start and then part again and again, until the server ends it. The first line of the answer; empty if there is none."""
    with dav.connect() as connection:
        send(connection, start, *[part] * parts)
        with contextlib.suppress(OSError):
            return connection.recv(65536).split(b'\r\n')[0]
    return b''


# (the statuses that are fine, method, path, body, fields). Each is sent as it is.
LONG = 'n' * 100_000
REQUESTS = [
    *(({wanted}, 'GET', urllib.parse.quote(path)) for wanted, path in
      ((414, '/' + '~/' * 1000), (414, '/' + 'é/' * 1000), (414, '/Docs/x' + '/~' * 8000), (404, '/Docs/' + '~/' * 120), (404, '/Docs/' + 'é/' * 120))),
    *(({wanted}, method, path, b'x' if method == 'PUT' else None) for method in ('GET', 'PUT', 'DELETE', 'PROPFIND', 'MKCOL') for wanted, path in
      ((400, '/Docs/../../secret.txt'), (400, '/Docs/NUL'), (400, '/Plain/policy.hvc.zip'), (400, '/Docs/a..zip'), (414, '/Docs/' + 'x' * 300),
       (400, '//%3F/C:/x'))),
    *(({wanted}, 'MOVE', '/Docs/a.txt', None, {'Destination': to}) for wanted, to in
      ((400, '/Docs/../../secret.txt'), (400, '/Docs/NUL'), (414, '/Docs/' + 'x' * 300), (414, '/Docs/' + 'x/' * 500), (400, '/Docs/b?.txt'),
       (502, 'http://elsewhere.example/Docs/a.txt'))),
    *(({403, 404}, method, path) for method, path in
      (('DELETE', '/'), ('DELETE', '/Docs/'), ('DELETE', '/Nowhere/'), ('MKCOL', '/New'), ('PUT', '/a.txt'))),
    *(({400}, 'PROPFIND', '/Docs/', body) for body in
      (prop(f'<x:a xmlns:x="{LONG}"/>'), prop(f'<b xmlns:x="{LONG}" ' + ' '.join(f'x:a{i}=""' for i in range(2000)) + '/>'), prop('<a/>' * 30000),
       prop('<a>' * 1000 + '</a>' * 1000), '<!DOCTYPE x [<!ENTITY a "aaaa"><!ENTITY b "&a;&a;&a;">]>' + prop('&b;'))),
    *(({413}, 'PROPFIND', '/Docs/', prop(''.join(names))) for names in
      ([f'<a{i} xmlns="{i}{"n" * 400}"/>' for i in range(50)], [f'<{"a" * 400}{i}/>' for i in range(50)], [f'<a{i}/>' for i in range(201)], ' ' * 200_000)),
    ({501}, 'BREW', '/'),
    *(({400}, method, '/Docs/a.txt?x', b'x', {'Destination': '/Docs/b.txt'}) for method in
      ('PUT', 'DELETE', 'MKCOL', 'COPY', 'MOVE', 'PROPPATCH', 'LOCK', 'UNLOCK')),
    ({415}, 'PUT', '/Docs/a.txt', b'x', {'Content-Encoding': 'gzip'}),
    *(({507}, 'PROPPATCH', '/Docs/a.txt', patch(value)) for value in (''.join(f'<p{i}/>' for i in range(3000)), f'<p xmlns="urn:x">{LONG}</p>')),
    *(({400}, 'PROPPATCH', '/Docs/a.txt', patch(value)) for value in
      ('<z:b:c xmlns:z="urn:z"/>', '<z:b xmlns:z="urn:z" z:c:d=""/>', '<xml:b/>', '<q xmlns="urn:q">\ufffe</q>', '<q>&#x1;</q>')),
    *(({400}, 'GET', '/Docs/a.txt', None, {'If': lists}) for lists in ('(<a>)' * 6000, ''.join(f'</Docs/{i}.txt> (["x"])' for i in range(17)))),
    *(({wanted}, 'GET', '/', None, fields) for wanted, fields in  # of pages of other sites
      ((403, {'Host': 'evil.example'}), (403, {'Origin': 'http://evil.example'}), (403, {'Origin': 'null'}),
       (403, {'Sec-Fetch-Site': 'cross-site', 'Sec-Fetch-Mode': 'no-cors', 'Sec-Fetch-Dest': 'image'}))),
]

# (status, the head but for its end, body). None has a clear end, or a clear host; no part of a body is taken for a request.
PUT, OWN, FOREIGN = b'PUT /Docs/a.txt' + HEAD, b'Host: localhost\r\n', b'Host: evil.example\r\n'
INNER = b'DELETE /Docs/a.txt' + HEAD + b'\r\n'
LENGTH, CHUNKS = b'Content-Length: 4\r\n', b'Transfer-Encoding: chunked\r\n'
TEXTS = [
    (501, PUT + b'Transfer-Encoding: gzip\r\n', INNER), (501, PUT + b'Transfer-Encoding: identity\r\n', INNER),
    (501, PUT + b'Transfer-Encoding: gzip, chunked\r\n', b'4\r\nabcd\r\n0\r\n\r\n'),
    (501, PUT + b'Transfer-Encoding: xchunked\r\n' + LENGTH, b'abcd' + INNER), (400, PUT + CHUNKS + LENGTH, b'0\r\n\r\n' + INNER),
    (400, PUT + LENGTH + b'Content-Length: 5\r\n', b'abcd' + INNER), (400, PUT + CHUNKS, b'4\r\nabcdX\r\n0\r\n\r\n' + INNER),
    (400, PUT + CHUNKS, b'-4\r\n' + INNER), (400, b'nonsense\r\n', b''), (400, b'GET / HTTP/1.1\r\n', b''),
    *((400, b'GET / HTTP/1.1\r\n' + hosts, b'') for hosts in (FOREIGN + OWN, OWN + FOREIGN)),
    (400, b'GET http://evil.example/ HTTP/1.1\r\n' + OWN, b''), (200, b'GET http://localhost/ HTTP/1.1\r\n' + OWN, b''),
]

# (the statuses that are fine, the beginning, what comes again and again).
BIG_CHUNK = b'1;' + b'e' * 60_000 + b'\r\nx\r\n'
FLOODS = [
    ('413|400', PUT + CHUNKS + b'\r\n1;', b'e' * 100_000), ('413', PUT + CHUNKS + b'\r\n', BIG_CHUNK), ('411', PUT + b'\r\n', b''),
    ('413|400', PUT + CHUNKS + b'\r\n0\r\n', b'T: ' + b't' * 30_000 + b'\r\n'),
    ('501', b'BREW /' + HEAD + CHUNKS + b'\r\n', BIG_CHUNK), ('431', b'GET /' + HEAD, b'X: ' + b'x' * 30_000 + b'\r\n'),
]


def everything_is_refused(dav):
    status(dav('PUT', '/Docs/a.txt', b'content'), 201, 204)
    idle = memory()
    for wanted, method, path, *rest in REQUESTS:
        answer = dav(method, path, *rest[:1], Depth='1' if method == 'PROPFIND' else 'infinity', **dict(*rest[1:]))
        expect(answer.status in wanted, f'{method} {path[:40]} {str(rest)[:80]}: {answer.status} {answer.body[:100]!r}')
    for wanted, head, body in TEXTS:
        answer = dav.raw(head + b'\r\n' + body)
        expect(answer.startswith(b'HTTP/1.1 %d' % wanted) and answer.count(b'HTTP/1.1') == 1, f'{head} {body}: {answer[:60]}')
    for wanted, start, part in FLOODS:
        line = flood(dav, start, part)
        expect(re.match(f'$|HTTP/1.1 ({wanted}) ', line.decode()), f'{start[:60]}: {line}')
        expect(memory() - idle < MOST_MEMORY, f'{start[:60]}: {memory() - idle} bytes more')
    ElementTree.fromstring(status(dav('PROPFIND', '/Docs/', Depth='1'), 207).body)
    dav.holds('/Docs/a.txt', b'content')


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
    kept = dav.fresh('kept', *(f'{number}.log' for number in range(200)))
    statuses = {dav('PROPPATCH', path, patch(f'<p xmlns="urn:x">{"v" * 60_000}</p>')).status for path in dav.listing(kept)}
    expect(statuses == {207, 507}, f'properties of all: {statuses}')
    status(dav('COPY', kept, to='/Docs/again/'), 507)
    expect(memory() - idle < MOST_MEMORY, f'{memory() - idle} bytes more')
    status(dav('DELETE', kept), 204)
    status(dav('PROPPATCH', '/Docs/a.txt', patch('<p xmlns="urn:x">v</p>')), 207)


def links_lead_nowhere(dav):
    outside = dav.native('/outside')
    (outside / 'sub').mkdir(parents=True)
    for name in ('f.txt', 'sub/g.txt', 'f.txt.zip'):
        (outside / name).write_text('outside')
    before = subprocess.check_output(['find', outside, '-ls'])
    for top in ('/Docs/', '/Plain/'):
        dav.native(top + 'holder').mkdir()
        for link, target in (('folder', ''), ('holder/folder', ''), ('f.txt', 'f.txt'), ('d.txt.zip', 'f.txt.zip'), ('holder/f.log', 'f.txt')):
            dav.native(top + link).symlink_to(outside / target)
        status(dav('MKCOL', top + 'other/'), 201)
        bodies = {'PUT': b'x', 'PROPPATCH': patch('<p/>'), 'LOCK': OWNED.format('exclusive', '')}
        for path in ('folder/', 'folder/f.txt', 'folder/sub/g.txt', 'f.txt', 'd.txt', 'holder/folder/f.txt', 'holder/f.log'):
            for method in ('GET', 'HEAD', 'PROPFIND', 'PROPPATCH', 'COPY', 'MOVE', 'PUT', 'LOCK', 'MKCOL', 'DELETE'):
                wanted = {'PUT': {409}, 'LOCK': {409}, 'MKCOL': {409}, 'DELETE': {204, 403, 404}}.get(method, {404})
                answer = dav(method, top + path, bodies.get(method), to=top + 'other/x', Depth='0')
                expect(answer.status in wanted, f'{method} {top}{path}: {answer.status} {answer.body!r}')
            status(dav('COPY', top + 'other/', to=top + path), 409)
        expect(top + 'folder/' not in dav.listing(top), 'a link is listed')
        status(dav('COPY', top + 'holder/', to=top + 'copied/'), 207)
        status(dav('MOVE', top + 'other/', to=top + 'holder/'), 204, 207)
        dav('DELETE', top + 'holder/')
        after = subprocess.check_output(['find', outside, '-ls'])
        expect(after == before, f'{top}: outside there is\n{after.decode()}')
        subprocess.run(['find', dav.native(top), '-type', 'l', '-delete'], check=True)
        dav('DELETE', top + 'copied/')


def short_name_of(native):
    """The other name by which the platform finds the file or folder."""
    listing = subprocess.run([*os.environ['WINE_RUN'].split(), 'cmd', '/c', 'dir', '/x', 'Z:' + str(native.parent).replace('/', '\\')],
                             capture_output=True, text=True, check=False).stdout
    found = re.search(rf'(\S+~\S+)\s+{re.escape(native.name)}\s*$', listing, re.M)
    expect(found, f'{native} has no short name, and the test tests nothing: {listing}')
    return found[1]


def a_name_is_the_file_that_it_stands_for(dav):
    folder = dav.fresh('averylongfolder', 'averylongname.log', 'averylongdocument.txt', 'b.txt')
    short_folder = short_name_of(dav.native(folder))
    for name, ending in (('averylongname.log', ''), ('averylongdocument.txt', '.zip')):
        path, short = folder + name, short_name_of(dav.native(folder + name + ending))[:-len(ending) or None]
        others = f'/Docs/averylongfolder/{short}', f'/Again/averylongfolder/{name}', f'/Again/{short_folder}/{short}', f'/Docs/{short_folder}/{name}'
        with dav.locked(path) as token:
            for other in others:
                status(dav('PUT', other, name.encode(), If=f'({token})'), 204)
                status(dav('PUT', other, b'lost'), 423)
                status(dav('PUT', other, b'lost', If_None_Match='*'), 412)
                status(dav('DELETE', other), 423)
                status(dav.lock(other), 423)
                status(dav('MOVE', folder + 'b.txt', to=other, Overwrite='F'), 423, 412)
                dav.holds(other, name.encode())
        for other in others[:2]:
            status(dav('MOVE', path, to=other), 403)
            with dav.locked(other):
                dav.holds(path, name.encode())
                status(dav('PUT', path, b'lost'), 423)


def long_paths_are_paths_like_others(dav):
    for folder in dav.both('long'):
        top, deep, name = folder + 'a/', folder + 'l' * 220 + '/', 'n' * 150 + '.txt'
        for path in (top, deep, deep + 'm' * 220 + '/'):
            status(dav('MKCOL', path), 201)
        status(dav('PUT', top + name, b'content'), 201)
        for method, source, target in (('COPY', top, deep + 'b/'), ('MOVE', top, deep + 'c/'), ('MOVE', deep + 'b/' + name, deep + 'c/n.txt')):
            status(dav(method, source, to=target), 201)
        for path in (deep + 'c/' + name, deep + 'c/n.txt'):
            dav.holds(path, b'content')
            expect(path in dav.listing(deep + 'c/'), f'{path} is not listed')
        status(dav('DELETE', deep), 204)
        expect(os.listdir(dav.native(folder)) == [], 'left')
    path = '/Docs/' + 'n' * 251 + '.txt'
    expect(dav('PUT', path, b'no room for the name of a container').status >= 400 and dav('GET', path).status == 404, 'a name that is too long')


def a_tree_keeps_its_members_apart(dav):
    """Two that have one name where they go: in two letter cases, or as a conflict copy beside a file of the name that it would get."""
    twins, moved = dav.fresh('twins', top='/Plain/'), dav.native('/Docs/moved')
    for name in ('c.log', 'C.log'):
        dav.native(twins + name).write_text('content of ' + name)
    for overwrite, wanted in (('F', 412), ('T', 409)):
        status(dav('MOVE', twins + 'c.log', to=twins + 'C.log', Overwrite=overwrite), wanted)
    for method, target in (('COPY', '/Docs/copied/'), ('MOVE', '/Docs/moved/')):
        status(dav(method, twins, to=target), 207)
    found = b''.join(path.read_bytes() for top in (dav.native(twins), moved) for path in top.rglob('*') if path.is_file())
    expect(all(b'content of ' + name in found for name in (b'c.log', b'C.log')), f'left: {found}')
    kept = dav.fresh('kept_apart', 'sub/', 'sub/a.txt')  # what the volume keeps for itself holds up no folder
    dav.native(kept + 'sub/policy.hvc').touch()
    status(dav('MOVE', kept, to='/Other/kept_apart/'), 201)
    (moved / '.HalvaneCloud').mkdir()  # as a killed run leaves it
    (moved / '.HalvaneCloud/container-7ffffff0-1-1.part').write_text('begun')
    status(dav('DELETE', '/Docs/moved/'), 204)


def a_mount_folder_inside_another_stays(dav):
    status(dav('PUT', '/Inner/kept.txt', b'kept'), 201)
    for method, path, target in (('DELETE', '/Other/inner/', '/'), ('MOVE', '/Other/inner/', '/Docs/inner/'), ('COPY', '/Plain/', '/Other/inner/')):
        status(dav(method, path, to=target), 403)
    dav.holds('/Inner/kept.txt', b'kept')


def it_is_told_where_something_is_stored(dav):
    status(dav('PUT', '/Docs/a.txt', b'content'), 201, 204)
    path = status(dav('PUT', '/Plain/b.txt.zip', dav.native('/Docs/a.txt.zip').read_bytes()), 201).headers['Location']
    expect(path == '/Plain/b.txt.HvcConflicted', path)
    dav.holds(path, b'content')
    dav.native(path).write_bytes(b'planted')
    expect(dav.listing('/Plain/').count(path) == 1, 'two of one name are listed')
    status(dav('DELETE', path), 204)
    dav.native('/Plain/b.txt.zip').rename(dav.native('/Docs/b.txt.zip'))
    path = '/Docs/b.txt.HvcConflicted'
    with dav.locked(path) as token:
        status(dav('PUT', path, b'new', If=f'({token})'), 204)
    dav.holds('/Docs/b.txt', b'new')
    status(dav('DELETE', '/Docs/b.txt'), 204)


def slow_and_idle_clients_hold_up_nobody(dav):
    status(dav('PUT', '/Plain/large.bin', b'1' * 30_000_000), 201, 204)
    with dav.connect() as reader:
        reader.sendall(b'GET /Plain/large.bin' + HEAD + b'Connection: close\r\n\r\n')
        got = reader.recv(1)  # the file is open
        status(dav('PUT', '/Plain/large.bin', b'2'), 204)
        got += b''.join(iter(lambda: reader.recv(65536), b''))
    expect(got.split(b'\r\n\r\n', 1)[1] == b'1' * 30_000_000, f'a mixture, or {len(got)} bytes')
    before = memory()
    body = b'PROPFIND /' + HEAD + b'Content-Length: 130000\r\n\r\n' + b' ' * 129_999
    for start, number in ((b'', 50), (b'GET / HT', 100), (body, 25)):  # the last ones are being answered, and make no room
        with contextlib.ExitStack() as waiting:
            for _ in range(number):
                send(waiting.enter_context(dav.connect()), start)
            status(dav('GET', '/'), 200)
            expect(memory() - before < MOST_MEMORY, f'{number} connections: {memory() - before} bytes more')
    with contextlib.ExitStack() as stack:
        uploads = [stack.enter_context(dav.connect()) for _ in range(34)]
        for connection in uploads:
            connection.sendall(b'PUT /Plain/upload.bin' + HEAD + b'Content-Length: 90000000\r\n\r\n')

        def answers():
            for connection in uploads:
                send(connection, b'x' * 20_000)
            with contextlib.suppress(OSError):
                return dav('GET', '/').status == 200

        until(answers)  # uploads that are not slow may not take all places


def a_full_disk_is_told(dav):
    full, big = dav.native('/Plain/full'), b'x' * 8_000_000
    full.mkdir()
    if subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=4m', 'none', full], capture_output=True, check=False).returncode != 0:
        return print('        (this machine cannot mount a small disk)')
    try:
        status(dav('PUT', '/Plain/full/x.bin', big), 507)
        status(dav('PUT', '/Plain/x.bin', big), 201)
        status(dav('COPY', '/Plain/x.bin', to='/Plain/full/x.bin'), 507)
        moved = dav.fresh('moved')
        status(dav('PUT', moved + 'x.txt', big), 201)
        answer = status(dav('MOVE', moved, to='/Plain/full/moved/'), 207)
        expect(b' 507 ' in answer.body, answer.body)
        dav.holds(moved + 'x.txt', big)
        for path in ('/Plain/x.bin', moved, '/Plain/full/moved/'):
            status(dav('DELETE', path), 204)
        expect(os.listdir(full) == [], f'left: {os.listdir(full)}')
    finally:
        subprocess.run(['umount', full], check=True)


def listed_is_what_can_be_asked_for(dav):
    folder = dav.fresh('odd', top='/Plain/')
    for name in ('con.txt', 'ends.', 'back\\slash', 'co:lon', 'n' * 250, 'tab\there', 'esc\x1b[31m.txt', '\uffff.txt'):
        dav.native(folder + name).touch()
    dav.native(folder + 'link.txt').symlink_to(dav.native('/server.log'))
    os.mkfifo(dav.native(folder + 'pipe.txt'))
    socket.socket(socket.AF_UNIX).bind(str(dav.native(folder + 'socket.txt')))
    for name in ('pipe.txt', 'socket.txt'):
        status(dav('PUT', folder + name, b''), 409)
    answer = status(dav('PROPFIND', folder, prop('<displayname/><resourcetype/>'), Depth='1'), 207)
    for href in ElementTree.fromstring(answer.body).iter('{DAV:}href'):
        status(dav('GET', href.text), 200)
    shutil.rmtree(dav.native(folder))
    dav.raw(b'GET /\x1b[31m\xc2\x9b31m' + HEAD + b'\r\n')
    expect(not re.search(rb'[\x00-\x08\x0e-\x1f]|\xc2[\x80-\x9f]', dav.native('/server.log').read_bytes()), 'a terminal would act on the log')


def an_empty_document_is_proven(dav):
    container, text = dav.native(dav.fresh('empty') + 'l.txt.zip'), pathlib.Path('l.txt')
    text.write_bytes(b'l' * 1000)
    subprocess.run(['7z', 'a', '-tzip', '-mem=AES256', '-pfirst password', container, text], capture_output=True, check=True)
    lie = bytearray(container.read_bytes())
    for size in (22, lie.rindex(b'PK\1\2') + 24):
        lie[size:size + 4] = bytes(4)
    container.write_bytes(lie)
    status(dav('GET', '/Docs/empty/l.txt'), 500)


def the_limits_are_as_told(dav):
    root = pathlib.Path(__file__).resolve().parents[2]
    limits = dict(re.findall(r'^constexpr \S+ (\w+)(?:{| = )([^;}]*)', (root / 'host/webdav/Limits.h').read_text(), re.M))
    told = (root / 'docs/security.md').read_text()
    expect(len(limits) > 30, 'the limits are not found')
    for name, value in limits.items():
        expect(f'| `{name}` | {value} |' in told, f'docs/security.md does not tell that {name} is {value}')


if __name__ == '__main__':
    run()
