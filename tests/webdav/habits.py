"""How programs save and what clients expect, against the server that with-server started: habits.py [TEST...]."""
import http.client
import os
import shutil
import threading
import time
import unicodedata
import urllib.parse

from dav import expect, run, status, token_of

WIN32 = 'urn:schemas-microsoft-com:'


def content(dav, path, wanted):
    answer = status(dav('GET', path), 200)
    expect(answer.body == wanted, f'{path} has {answer.body[:60]!r} instead of {wanted[:60]!r}')


def fresh(dav, name):
    """An empty folder for one test."""
    path = f'/Docs/{name}/'
    dav('DELETE', path)
    status(dav('MKCOL', path), 201)
    return path


def explorer_saves(dav):
    for folder in (fresh(dav, 'explorer'), '/Plain/'):
        path = folder + 'new.txt'
        dav('DELETE', path)
        status(dav('PUT', path, b''), 201)
        token = token_of(dav.lock(path))
        times = (f'<D:propertyupdate xmlns:D="DAV:" xmlns:Z="{WIN32}"><D:set><D:prop>'
                 '<Z:Win32LastModifiedTime>Mon, 03 Feb 2020 04:05:06 GMT</Z:Win32LastModifiedTime>'
                 '<Z:Win32FileAttributes>00000020</Z:Win32FileAttributes></D:prop></D:set></D:propertyupdate>')
        expect(b'200 OK' in status(dav('PROPPATCH', path, times, If=f'({token})'), 207).body, 'the times are refused')
        status(dav('PUT', path, b'content', If=f'({token})'), 204)
        status(dav('PROPPATCH', path, times, If=f'({token})'), 207)
        status(dav('UNLOCK', path, Lock_Token=token), 204)
        content(dav, path, b'content')
        head = status(dav('HEAD', path), 200)
        expect(head.headers['Last-Modified'] == 'Mon, 03 Feb 2020 04:05:06 GMT', head.headers['Last-Modified'])
        expect(head.headers['Content-Length'] == '7', 'HEAD')


def word_and_excel_save(dav):
    for folder in (fresh(dav, 'word'), '/Plain/'):
        for name in ('report.docx', '~$report.docx', '~WRD0001.tmp', '~WRL0002.tmp'):
            dav('DELETE', folder + name)
        original, temp, backup = folder + 'report.docx', folder + '~WRD0001.tmp', folder + '~WRL0002.tmp'
        status(dav('PUT', original, b'first'), 201)
        for turn in range(3):
            owner = folder + '~$report.docx'
            status(dav('PUT', owner, b'Ann'), 201)
            token = token_of(dav.lock(original))
            new = b'second, longer %d' % turn
            status(dav('PUT', temp, new), 201)
            status(dav('MOVE', original, Destination=dav.url(backup), If=f'({token})', Overwrite='F'), 201)
            status(dav('MOVE', temp, Destination=dav.url(original), Overwrite='F'), 201)
            status(dav('DELETE', backup), 204)
            status(dav('DELETE', owner), 204)
            content(dav, original, new)
            expect(dav.listing(folder) == [original] or folder == '/Plain/', f'left over: {dav.listing(folder)}')


def moving_onto_a_locked_file(dav):
    for folder in (fresh(dav, 'onto'), '/Plain/'):
        original, temp = folder + 'book.xlsx', folder + '1A2B3C.tmp'
        dav('DELETE', original)
        status(dav('PUT', original, b'old and longer than the new one'), 201)
        token = token_of(dav.lock(original))
        status(dav('PUT', temp, b'new'), 201, 204)
        status(dav('MOVE', temp, Destination=dav.url(original)), 423)
        # An untagged list speaks of the request's own URL, which has no lock.
        status(dav('MOVE', temp, Destination=dav.url(original), If=f'({token})'), 412)
        content(dav, original, b'old and longer than the new one')
        status(dav('MOVE', temp, Destination=dav.url(original), If=f'<{dav.url(original)}> ({token})'), 204)
        content(dav, original, b'new')
        status(dav('PUT', original, b'without the token'), 423)  # the lock has stayed
        status(dav('PUT', original, b'newer', If=f'({token})'), 204)
        status(dav('UNLOCK', original, Lock_Token=token), 204)
        content(dav, original, b'newer')


def a_lock_stays_behind_when_its_file_moves(dav):
    for folder in (fresh(dav, 'moves'), '/Plain/'):
        a, b = folder + 'a.txt', folder + 'b.txt'
        status(dav('PUT', a, b'content'), 201, 204)
        token = token_of(dav.lock(a))
        status(dav('MOVE', a, Destination=dav.url('/Docs/nowhere/b.txt'), If=f'({token})'), 409)
        status(dav('PUT', a, b'still locked'), 423)
        status(dav('MOVE', a, Destination=dav.url(b), If=f'({token})'), 201)
        status(dav('PUT', b, b'no lock came with it'), 204)
        status(dav('UNLOCK', b, Lock_Token=token), 409)
        status(dav('DELETE', b), 204)


def an_expired_lock_blocks_nobody(dav):
    path = fresh(dav, 'expired') + 'a.txt'
    status(dav('PUT', path, b'one'), 201)
    answer = dav.lock(path, timeout='Second-1')
    token = token_of(answer)
    expect(b'Second-1<' in answer.body, 'what was granted is not said')
    status(dav('PUT', path, b'two'), 423)
    for _ in range(100):
        if dav('PUT', path, b'three').status == 204:
            break
        time.sleep(0.1)
    content(dav, path, b'three')
    status(dav('PUT', path, b'four', If=f'({token})'), 412)
    status(dav('UNLOCK', path, Lock_Token=token), 409)
    expect(b'Second-14400<' in dav.lock(path, timeout='Infinite').body, 'Infinite')
    # One that is refreshed outlives one that was taken after it.
    refreshed, other = path[:-5] + 'refreshed.txt', path[:-5] + 'other.txt'
    token = token_of(status(dav.lock(refreshed, timeout='Second-1'), 201))
    status(dav.lock(other, timeout='Second-1'), 201)
    for _ in range(100):
        status(dav('LOCK', refreshed, If=f'({token})', Timeout='Second-9'), 200)
        if dav('PUT', other, b'').status == 204:
            break
        time.sleep(0.1)
    status(dav('LOCK', refreshed, If=f'({token})', Timeout='Second-9'), 200)
    status(dav('UNLOCK', refreshed, Lock_Token=token), 204)


def folder_locks(dav):
    folder = fresh(dav, 'tree')
    status(dav('PUT', folder + 'a.txt', b'one'), 201)
    # Of depth 0 it only holds who is in the folder.
    token = token_of(dav.lock(folder, depth='0'))
    status(dav('PUT', folder + 'a.txt', b'three'), 204)
    status(dav('DELETE', folder + 'a.txt'), 423)
    status(dav('UNLOCK', folder, Lock_Token=token), 204)
    # A locked member keeps its whole folder.
    token = token_of(dav.lock(folder + 'a.txt'))
    answer = status(dav('DELETE', folder), 207)
    expect(b'423 Locked' in answer.body and b'424 Failed' in answer.body, answer.body)
    content(dav, folder + 'a.txt', b'three')
    status(dav('DELETE', folder, If=f'<{dav.url(folder)}a.txt> ({token})'), 204)


def names(dav):
    folder = fresh(dav, 'names')
    odd = ["two  blanks.txt", "100%25.txt", "50% off.txt", "a#b.txt", "R&D.txt", "it's.txt", "plus+and,;=@$!.txt", "café.txt",
           "日本語.txt", "🎉 party.txt", "(parens) [brackets] {braces}.txt", "tilde~1x.txt", ".hidden", "._a.txt", ".DS_Store"]
    for name in odd:
        path = folder + urllib.parse.quote(name)
        status(dav('PUT', path, name.encode()), 201)
        content(dav, path, name.encode())
    expect(dav.listing(folder) == sorted(folder + name for name in odd), f'{dav.listing(folder)}')
    # Either way of composing an accent finds the file, and nothing is renamed.
    for stored, asked in (('NFC', 'NFD'), ('NFD', 'NFC')):
        name = 'Übung é ' + stored + '.txt'
        store, ask = (urllib.parse.quote(folder) + urllib.parse.quote(unicodedata.normalize(form, name)) for form in (stored, asked))
        status(dav('PUT', store, b'accents'), 201)
        content(dav, ask, b'accents')
        status(dav('PUT', ask, b'again'), 204)
        content(dav, store, b'again')
        expect(urllib.parse.unquote(store) in dav.listing(folder), 'it was renamed')
        status(dav('DELETE', ask), 204)
        status(dav('GET', store), 404)
    # Another letter case finds it, and a rename by letter case alone works.
    status(dav('PUT', folder + 'Case.txt', b'case'), 201)
    content(dav, folder + 'CASE.TXT', b'case')
    status(dav('MOVE', folder + 'Case.txt', Destination=dav.url(folder + 'cASE.txt')), 201, 204)
    content(dav, folder + 'cASE.txt', b'case')
    expect(folder + 'cASE.txt' in dav.listing(folder), f'{dav.listing(folder)}')


def refused_paths(dav):
    for path, wanted in (('/Docs/../../secret.txt', 400), ('/Docs/NUL', 400), ('/Docs/' + 'x' * 300, 414), ('//%3F/C:/x', 400)):
        for method in ('GET', 'PUT', 'DELETE', 'PROPFIND', 'MKCOL'):
            expect(dav(method, path, b'x' if method == 'PUT' else None, Depth='0').status == wanted, f'{method} {path[:60]}: not {wanted}')
        if path.startswith('/Docs'):
            status(dav('MOVE', '/Docs/word/', Destination=dav.url(path)), wanted)
    status(dav('MOVE', '/Docs/word/', Destination='http://elsewhere.example/Docs/a.txt'), 502)
    for method, path in (('DELETE', '/'), ('DELETE', '/Docs/'), ('DELETE', '/Nowhere/'), ('MKCOL', '/New'), ('PUT', '/a.txt')):
        status(dav(method, path), 403, 404)


def foreign_requests(dav):
    for wanted, fields in ((403, {'Host': 'evil.example'}), (200, {'Host': f'localhost:{dav.port}'}), (403, {'Origin': 'http://evil.example'}),
                           (403, {'Origin': 'null'}), (200, {'Origin': f'http://127.0.0.1:{dav.port}'}),
                           (403, {'Sec_Fetch_Site': 'cross-site', 'Sec_Fetch_Mode': 'no-cors', 'Sec_Fetch_Dest': 'image'})):
        status(dav('GET', '/', **fields), wanted)
    own = b'Host: 127.0.0.1:%d\r\n' % dav.port
    for head in (b'GET / HTTP/1.1\r\n', b'GET / HTTP/1.1\r\nHost: evil.example\r\n' + own, b'GET / HTTP/1.1\r\n' + own + b'Host: evil.example\r\n',
                 b'GET http://evil.example/ HTTP/1.1\r\n' + own, b'nonsense\r\n'):
        answer = dav.raw(head + b'\r\n')
        expect(answer.startswith((b'HTTP/1.1 400', b'HTTP/1.1 403')), f'{head}: {answer[:40]}')
    expect(dav.raw(b'GET http://127.0.0.1:%d/ HTTP/1.1\r\n' % dav.port + own + b'\r\n').startswith(b'HTTP/1.1 200'), 'the own host in full')


def bodies_without_a_clear_end(dav):
    """What is stored is what was sent, or nothing; no part of a body is taken for a request."""
    status(dav('PUT', '/Docs/ends.txt', b'old'), 201, 204)
    inner = b'DELETE /Docs/ends.txt HTTP/1.1\r\nHost: localhost\r\n\r\n'
    length, chunked = b'Content-Length: 4\r\n', b'Transfer-Encoding: chunked\r\n'
    for fields, body, wanted in ((b'Transfer-Encoding: gzip\r\n', inner, 501), (b'Transfer-Encoding: identity\r\n', inner, 501),
                                 (b'Transfer-Encoding: gzip, chunked\r\n', b'4\r\nabcd\r\n0\r\n\r\n', 501),
                                 (b'Transfer-Encoding: xchunked\r\n' + length, b'abcd' + inner, 501),
                                 (chunked + length, b'0\r\n\r\n' + inner, 400), (length + b'Content-Length: 5\r\n', b'abcd' + inner, 400),
                                 (chunked, b'4\r\nabcdX\r\n0\r\n\r\n' + inner, 400), (chunked, b'-4\r\n' + inner, 400)):
        answer = dav.raw(b'PUT /Docs/ends.txt HTTP/1.1\r\nHost: localhost\r\n' + fields + b'\r\n' + body)
        expect(answer.startswith(b'HTTP/1.1 %d' % wanted) and answer.count(b'HTTP/1.1') == 1, f'{fields} {answer[:60]}')
        content(dav, '/Docs/ends.txt', b'old')


def conditions(dav):
    path = fresh(dav, 'conditions') + 'a.txt'
    status(dav('PUT', path, b'0123456789', If_None_Match='*'), 201)
    status(dav('PUT', path, b'again', If_None_Match='*'), 412)
    tag = dav('HEAD', path).headers['ETag']
    expect(tag.startswith('"'), tag)
    status(dav('GET', path, If_None_Match='"other", W/' + tag), 304)
    status(dav('GET', path, If_Modified_Since=dav('HEAD', path).headers['Last-Modified']), 304)
    status(dav('PUT', path, b'again', If_Match='"other"'), 412)
    status(dav('DELETE', path, If_Match='"other"'), 412)
    status(dav('PUT', path, b'9876543210', If_Match=tag), 204)
    other = dav('HEAD', path).headers['ETag']
    expect(other != tag, 'the same tag for other content')
    status(dav('PUT', path, b'x', If=f'([{tag}])'), 412)
    status(dav('PUT', path, b'9876543210', If=f'(Not [{tag}]) (<DAV:no-lock>)'), 204)
    tag = dav('HEAD', path).headers['ETag']
    lock = token_of(dav.lock(path))
    expect(dav('HEAD', path).headers['ETag'] == tag, 'a lock changes the tag')
    status(dav('UNLOCK', path, Lock_Token=lock), 204)
    expect(dav('HEAD', path).headers['ETag'] == tag, 'an unlock changes the tag')
    log, native = path.replace('a.txt', 'b.log'), f'{dav.folder}{path}'.replace('a.txt', 'b.log')
    status(dav('PUT', log, b'version A'), 201)
    before, old = os.stat(native), dav('HEAD', log).headers['ETag']
    with open(native, 'r+b') as file:
        file.write(b'version B')
    while os.stat(native).st_ctime_ns // 10**6 == before.st_ctime_ns // 10**6 or os.stat(native).st_mtime_ns != before.st_mtime_ns:
        os.utime(native, ns=(before.st_atime_ns, before.st_mtime_ns))
    expect(dav('HEAD', log).headers['ETag'] != old, 'the tag of other content of the same size and time')
    answer = status(dav('GET', path, Range='bytes=-3'), 206)
    expect(answer.body == b'210' and answer.headers['Content-Range'] == 'bytes 7-9/10', f'{answer.body!r}')
    status(dav('GET', path, Range='bytes=2-4', If_Range=tag), 206)
    for other in ('"other"', dav('HEAD', path).headers['Last-Modified']):  # two versions may have one date
        status(dav('GET', path, Range='bytes=2-4', If_Range=other), 200)
    status(dav('PUT', path, b'part', Content_Range='bytes 0-3/10'), 400)


def broken_uploads(dav):
    for folder in (fresh(dav, 'broken'), '/Plain/'):
        path = folder + 'a.txt'
        dav('DELETE', path)
        status(dav('PUT', path, b'old'), 201)
        before = dav.listing(folder)
        head = f'PUT {path} HTTP/1.1\r\nHost: localhost\r\n'.encode()
        dav.raw(head + b'Content-Length: 5000000\r\n\r\n' + b'x' * 2000000)
        dav.raw(head + b'Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n')
        dav.raw(head.replace(b'a.txt', b'never.txt') + b'Content-Length: 10\r\n\r\nhalf')
        content(dav, path, b'old')
        expect(dav.listing(folder) == before, f'{dav.listing(folder)}')
        # The client tries again, and then repeats a request whose answer it did not see.
        for _ in range(2):
            answer = dav.raw(head + b'Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n3\r\nnew\r\n2\r\ner\r\n0\r\n\r\n')
            expect(b' 204 ' in answer, answer)
        content(dav, path, b'newer')
        for wanted in (204, 404):
            status(dav('DELETE', path), wanted)


def large_and_parallel(dav):
    for folder in (fresh(dav, 'large'), '/Plain/'):
        path, size = folder + 'large.bin', 12_000_000
        contents = [bytes([digit]) * size for digit in b'0123']
        status(dav('PUT', path, contents[0]), 201, 204)
        wrong, stop = [], threading.Event()

        def read():
            while not stop.is_set():
                try:
                    answer = dav('GET', path)
                    if answer.status != 200 or answer.body not in contents:
                        wrong.append((answer.status, len(answer.body), answer.body[:80]))
                except (OSError, http.client.HTTPException) as error:
                    wrong.append(repr(error))

        readers = [threading.Thread(target=read) for _ in range(3)]
        for reader in readers:
            reader.start()
        try:
            for new in contents:
                status(dav('PUT', path, new), 204)
                token = token_of(dav.lock(path))
                status(dav('PUT', path, new, If=f'({token})'), 204)
                status(dav('UNLOCK', path, Lock_Token=token), 204)
        finally:
            stop.set()
            for reader in readers:
                reader.join()
        expect(not wrong, f'a reader saw {wrong[:3]}')


def copies_and_moves(dav):
    folder = fresh(dav, 'copies')
    for name in ('a/', 'a/b/'):
        status(dav('MKCOL', folder + name), 201)
    status(dav('PUT', folder + 'a/b/deep.txt', b'deep'), 201)
    status(dav('PUT', folder + 'x.txt', b'x'), 201)
    patch = '<propertyupdate xmlns="DAV:"><set><prop><color xmlns="urn:x">red &amp; blue</color></prop></set></propertyupdate>'
    status(dav('PROPPATCH', folder + 'a/b/deep.txt', patch), 207)
    status(dav('COPY', folder + 'a/', Destination=dav.url(folder + 'c/')), 201)
    ask = '<propfind xmlns="DAV:"><prop><color xmlns="urn:x"/></prop></propfind>'
    expect(b'red &amp; blue' in dav('PROPFIND', folder + 'c/b/deep.txt', ask, Depth='0').body, 'a property stays behind')
    status(dav('COPY', folder + 'x.txt', Destination=dav.url(folder + 'c/')), 204)  # a file in place of a folder
    content(dav, folder + 'c', b'x')
    status(dav('MOVE', folder + 'a/', Destination=dav.url(folder + 'c')), 204)  # and the other way round
    content(dav, folder + 'c/b/deep.txt', b'deep')
    expect(dav.listing(folder) == [folder + 'c/', folder + 'x.txt'], f'{dav.listing(folder)}')
    # To another key and out of the encrypted places each file is stored anew.
    dav('DELETE', '/Other/c/')
    status(dav('MOVE', folder + 'c/', Destination=dav.url('/Other/c/')), 201)
    content(dav, '/Other/c/b/deep.txt', b'deep')
    expect(os.path.exists(dav.folder + '/Other/c/b/deep.txt.zip'), 'it is not encrypted there')
    status(dav('GET', folder + 'c/'), 404)
    dav('DELETE', '/Plain/c/')
    status(dav('COPY', '/Other/c/', Destination=dav.url('/Plain/c/')), 201)
    expect(open(dav.folder + '/Plain/c/b/deep.txt', 'rb').read() == b'deep', 'plain copy')
    for path in ('/Plain/c/', '/Other/c/'):
        status(dav('DELETE', path), 204)


def a_replaced_folder_is_not_lost(dav):
    """When its successor could only be made in part: one file of it cannot be decrypted."""
    for method, target in (('COPY', '/Docs/replaced'), ('COPY', '/Other/replaced'), ('MOVE', '/Other/replaced')):
        source = fresh(dav, 'successor')
        dav('DELETE', target)
        status(dav('MKCOL', target), 201)
        status(dav('PUT', target + '/kept.txt', b'kept'), 201)
        status(dav('PUT', source + 'good.txt', b'good'), 201)
        status(dav('PUT', source + 'bad.txt', b'bad' * 1000), 201)
        with open(f'{dav.folder}/Docs/successor/bad.txt.zip', 'r+b') as container:
            container.seek(1000)
            container.write(b'damaged')
        status(dav(method, source, Destination=dav.url(target)), 207)
        parent = target.rsplit('/', 1)[0] + '/'
        kept = [path for path in dav.listing(parent) if path.startswith(target)]
        if method == 'COPY':
            expect(kept == [target + '/'] and dav.listing(target + '/') == [target + '/kept.txt'], f'{kept}')
            content(dav, source + 'good.txt', b'good')
        else:
            expect(len(kept) == 2, f'{kept}')
            content(dav, target + '/good.txt', b'good')
            kept = [path for path in kept if '~' in path]
        content(dav, kept[0] + 'kept.txt', b'kept')
        expect(source + 'bad.txt' in dav.listing(source), 'what could not be copied is gone')
        dav('DELETE', kept[0])
    dav('DELETE', source)


def whatever_is_listed_can_be_used(dav):
    folder = fresh(dav, 'listed')
    native = dav.folder + '/Docs/listed/'
    status(dav('PUT', folder + 'good.txt', b'good'), 201)
    container = open(native + 'good.txt.zip', 'rb').read()
    open(native + 'good (from the laptop).txt.zip', 'wb').write(container)
    open(native + 'broken.txt.zip', 'wb').write(b'this is no container')
    open(native + 'empty.txt.zip', 'wb').write(b'')
    open(native + 'cut.txt.zip', 'wb').write(container[:len(container) // 2])
    open(native + 'clear.txt', 'wb').write(b'in clear')
    listed = dav.listing(folder)
    expect(len(listed) == 6 and folder + 'good.txt' in listed, f'{listed}')
    expect(folder + 'good (from the laptop).txt.HvcConflicted' in listed, f'{listed}')
    page = status(dav('GET', folder), 200).body.decode()
    expect('conflict copy' in page and 'not encrypted' in page, page)
    for path in listed:
        quoted = urllib.parse.quote(path)
        answer = status(dav('GET', quoted), 200)
        copied = quoted + ' copy'.replace(' ', '%20')
        status(dav('COPY', quoted, Destination=dav.url(copied)), 201)
        expect(dav('GET', copied).body == answer.body, f'{path}: the copy differs')
        status(dav('MOVE', quoted, Destination=dav.url(copied)), 204)
        status(dav('GET', quoted), 404)
        expect(dav('GET', copied).body == answer.body, f'{path}: moved it differs')
        status(dav('DELETE', copied), 204)
    expect(dav.listing(folder) == [], f'{dav.listing(folder)}')
    # The names of containers are no way round the files in them.
    status(dav('PUT', folder + 'good.txt', b'good'), 201)
    for method in ('GET', 'DELETE', 'PROPFIND'):
        status(dav(method, folder + 'good.txt.zip', Depth='0'), 404)
    status(dav('PUT', folder + 'good.txt.zip', b'x'), 409)
    content(dav, folder + 'good.txt', b'good')


def properties(dav):
    path = fresh(dav, 'properties') + 'a.txt'
    status(dav('PUT', path, b'x'), 201)
    both = ('<propertyupdate xmlns="DAV:"><set><prop><one xmlns="urn:x">1</one></prop></set>'
            '<set><prop><getetag>mine</getetag></prop></set></propertyupdate>')
    answer = status(dav('PROPPATCH', path, both), 207).body
    expect(b'403 Forbidden' in answer and b'424 Failed' in answer, answer)
    ask = '<propfind xmlns="DAV:"><prop><one xmlns="urn:x"/><getetag/></prop></propfind>'
    expect(b'404 Not Found' in dav('PROPFIND', path, ask, Depth='0').body, 'half of it was done')
    expect(b'404' not in dav('PROPFIND', path, ask, Depth='0', Brief='t').body, 'Brief')
    answer = status(dav('PROPFIND', '/Docs/', Depth='infinity'), 403).body
    expect(b'propfind-finite-depth' in answer, answer)
    answer = status(dav('PROPFIND', path, '<propfind xmlns="DAV:"><propname/></propfind>', Depth='0'), 207).body
    expect(b'<D:getcontentlength/>' in answer and b'Win32CreationTime' in answer, answer)


def large_folders(dav):
    folder = fresh(dav, 'many')
    for number in range(5000):
        open(f'{dav.folder}/Docs/many/readme file {number:05}', 'wb').write(b'plain')
        open(f'{dav.folder}/Docs/many/file of clear text {number:05}.log', 'wb').write(b'plain')
    ask = '<propfind xmlns="DAV:"><prop><resourcetype/><getcontentlength/><getlastmodified/><creationdate/><getetag/></prop></propfind>'
    for body in (None, ask):
        answer = status(dav('PROPFIND', folder, body, Depth='1'), 207)
        count = answer.body.count(b'<D:response>')
        expect(count == 10001, f'{count} entries')
        expect(len(answer.body) / count <= 400, f'{len(answer.body) / count} bytes an entry')
    names = ''.join(f'<{"n" * 500}{number}/>' for number in range(31))  # an answer that repeats them all would be too long
    status(dav('PROPFIND', folder, f'<propfind xmlns="DAV:"><prop>{names}</prop></propfind>', Depth='1'), 507)
    expect(dav('GET', folder).body.count(b'<tr') == 10001, 'page')
    shutil.rmtree(dav.folder + '/Docs/many')


if __name__ == '__main__':
    run((explorer_saves, word_and_excel_save, moving_onto_a_locked_file, a_lock_stays_behind_when_its_file_moves,
         an_expired_lock_blocks_nobody, folder_locks, names, refused_paths,
         foreign_requests, bodies_without_a_clear_end, conditions, broken_uploads, large_and_parallel, copies_and_moves,
         a_replaced_folder_is_not_lost, whatever_is_listed_can_be_used, properties, large_folders))
