"""How programs save and what clients expect, against the server that with-server started: habits.py [TEST...]."""
import concurrent.futures
import os
import shutil
import unicodedata
import urllib.parse

from dav import expect, patch, prop, run, status, token_of, until

WIN32 = 'urn:schemas-microsoft-com:'


def explorer_saves(dav):
    time = 'Mon, 03 Feb 2020 04:05:06 GMT'
    times = patch(f'<Win32LastModifiedTime xmlns="{WIN32}">{time}</Win32LastModifiedTime>'
                  f'<Win32FileAttributes xmlns="{WIN32}">00000020</Win32FileAttributes>')
    for folder in dav.both('explorer'):
        path = folder + 'new.txt'
        status(dav('PUT', path, b''), 201)
        with dav.locked(path) as token:
            expect(b'200 OK' in status(dav('PROPPATCH', path, times, If=f'({token})'), 207).body, 'the times are refused')
            status(dav('PUT', path, b'content', If=f'({token})'), 204)
            status(dav('PROPPATCH', path, times, If=f'({token})'), 207)
        dav.holds(path, b'content')
        fields = dav('HEAD', path).headers
        expect((fields['Last-Modified'], fields['Content-Length']) == (time, '7'), f'{fields}')


def word_and_excel_save(dav):
    for folder in dav.both('word', 'report.docx'):
        original, owner, temp, backup = (folder + name for name in ('report.docx', '~$report.docx', '~WRD0001.tmp', '~WRL0002.tmp'))
        for new in (b'second', b'third, longer'):
            status(dav('PUT', owner, b'Ann'), 201)
            token = token_of(dav.lock(original))
            status(dav('PUT', temp, new), 201)
            status(dav('MOVE', original, to='/Docs/nowhere/b.txt', If=f'({token})'), 409)
            status(dav('PUT', original, b'still locked'), 423)
            status(dav('MOVE', original, to=backup, If=f'({token})', Overwrite='F'), 201)
            status(dav('UNLOCK', backup, Lock_Token=token), 409)  # the lock has ended, here and there
            status(dav('MOVE', temp, to=original, Overwrite='F'), 201)
            for done in (backup, owner):
                status(dav('DELETE', done), 204)
            dav.holds(original, new)
            expect(dav.listing(folder) == [original], f'left over: {dav.listing(folder)}')


def moving_onto_a_locked_file(dav):
    for folder in dav.both('onto', 'quarterly.xlsx', '1A2B3C.tmp'):
        original, temp = folder + 'quarterly.xlsx', folder + '1A2B3C.tmp'
        with dav.locked(original) as token:
            status(dav('MOVE', temp, to=original), 423)
            # An untagged list speaks of the request's own URL, which has no lock.
            status(dav('MOVE', temp, to=original, If=f'({token})'), 412)
            dav.holds(original, b'quarterly.xlsx')
            status(dav('MOVE', temp, to=original, If=f'<{dav.url(original)}> ({token})'), 204)
            dav.holds(original, b'1A2B3C.tmp')
            status(dav('PUT', original, b'without the token'), 423)  # the lock has stayed
            status(dav('PUT', original, b'newer', If=f'({token})'), 204)
        dav.holds(original, b'newer')
    planted = '/Docs/planted.txt'  # by another program, and so not encrypted
    dav.native(planted).write_bytes(b'planted')
    with dav.locked(planted) as token:
        for content in (b'saved', b'saved again'):
            status(dav('PUT', planted, content, If=f'({token})'), 204)
            status(dav('PUT', planted, b'without the token'), 423)
    dav.holds(planted, b'saved again')
    expect(not dav.native(planted).exists(), 'it is still there unencrypted')


def an_expired_lock_blocks_nobody(dav):
    """And one that is refreshed outlives one that was taken after it."""
    refreshed, path = (dav.fresh('expired') + name for name in ('refreshed.txt', 'a.txt'))
    kept = token_of(dav.lock(refreshed, timeout='Second-1'))
    answer = dav.lock(path, timeout='Second-1')
    token = token_of(answer)
    expect(b'Second-1<' in answer.body, 'what was granted is not said')
    status(dav('PUT', path, b'locked'), 423)
    until(lambda: status(dav('LOCK', refreshed, If=f'({kept})', Timeout='Second-9'), 200) and dav('PUT', path, b'new').status == 204)
    dav.holds(path, b'new')
    status(dav('PUT', path, b'newer', If=f'({token})'), 412)
    status(dav('UNLOCK', path, Lock_Token=token), 409)
    status(dav('UNLOCK', refreshed, Lock_Token=kept), 204)
    expect(b'Second-14400<' in dav.lock(path, timeout='Infinite').body, 'Infinite')


def folder_locks(dav):
    folder = dav.fresh('tree', 'a.txt')
    with dav.locked(folder):  # of depth 0 it only holds who is in the folder
        status(dav('PUT', folder + 'a.txt', b'new'), 204)
        status(dav('DELETE', folder + 'a.txt'), 423)
    # A locked member keeps its whole folder.
    token = token_of(dav.lock(folder + 'a.txt'))
    answer = status(dav('DELETE', folder), 207)
    expect(b'423 Locked' in answer.body and b'424 Failed' in answer.body, answer.body)
    dav.holds(folder + 'a.txt', b'new')
    status(dav('DELETE', folder, If=f'<{dav.url(folder)}a.txt> ({token})'), 204)


def names(dav):
    folder = dav.fresh('names')
    odd = ["two  blanks.txt", "100%25.txt", "50% off.txt", "a#b.txt", "R&D.txt", "it's.txt", "plus+and,;=@$!.txt", "café.txt",
           "日本語.txt", "🎉 party.txt", "(parens) [brackets] {braces}.txt", "tilde~1x.txt", ".hidden", "._a.txt", ".DS_Store"]
    for name in odd:
        path = folder + urllib.parse.quote(name)
        status(dav('PUT', path, name), 201)
        dav.holds(path, name.encode())
    expect(dav.listing(folder) == sorted(folder + name for name in odd), f'{dav.listing(folder)}')
    # Either way of composing an accent finds the file, and nothing is renamed.
    for stored, asked in (('NFC', 'NFD'), ('NFD', 'NFC')):
        store, ask = (urllib.parse.quote(folder + unicodedata.normalize(form, f'Übung é {stored}.txt')) for form in (stored, asked))
        status(dav('PUT', store, b'accents'), 201)
        dav.holds(ask, b'accents')
        status(dav('PUT', ask, b'again'), 204)
        dav.holds(store, b'again')
        expect(urllib.parse.unquote(store) in dav.listing(folder), 'it was renamed')
        status(dav('DELETE', ask), 204)
        status(dav('GET', store), 404)
    # Another letter case finds it, and a rename by letter case alone works.
    status(dav('PUT', folder + 'Case.txt', b'case'), 201)
    dav.holds(folder + 'CASE.TXT', b'case')
    status(dav('MOVE', folder + 'Case.txt', to=folder + 'cASE.txt'), 201, 204)
    dav.holds(folder + 'cASE.txt', b'case')
    expect(folder + 'cASE.txt' in dav.listing(folder), f'{dav.listing(folder)}')


def conditions(dav):
    path = dav.fresh('conditions') + 'a.txt'
    status(dav('PUT', path, b'0123456789', If_None_Match='*'), 201)
    fields = dav('HEAD', path).headers
    tag, date = fields['ETag'], fields['Last-Modified']
    expect(tag.startswith('"'), tag)
    for method, wanted, asked in (
            ('PUT', 412, {'If_None_Match': '*'}), ('PUT', 412, {'If_Match': '"other"'}), ('DELETE', 412, {'If_Match': '"other"'}),
            ('PUT', 412, {'If': f'(Not [{tag}])'}), ('PUT', 400, {'Content_Range': 'bytes 0-3/10'}),
            ('GET', 304, {'If_None_Match': '"other", W/' + tag}), ('GET', 304, {'If_Modified_Since': date}),
            ('GET', 206, {'Range': 'bytes=2-4', 'If_Range': tag}), ('GET', 200, {'Range': 'bytes=2-4', 'If_Range': '"other"'}),
            ('GET', 200, {'Range': 'bytes=2-4', 'If_Range': date})):  # two versions may have one date
        status(dav(method, path, b'other' if method == 'PUT' else None, **asked), wanted)
    answer = status(dav('GET', path, Range='bytes=-3'), 206)
    expect(answer.body == b'789' and answer.headers['Content-Range'] == 'bytes 7-9/10', f'{answer.body!r}')
    with dav.locked(path):
        expect(dav('HEAD', path).headers['ETag'] == tag, 'a lock changes the tag')
    expect(dav('HEAD', path).headers['ETag'] == tag, 'an unlock changes the tag')
    status(dav('PUT', path, b'9876543210', If_Match=tag), 204)
    expect(dav('HEAD', path).headers['ETag'] != tag, 'the same tag for other content')
    status(dav('PUT', path, b'x', If=f'(Not [{tag}]) (<DAV:no-lock>)'), 204)
    path = dav.fresh('conditions', 'a.log') + 'b.txt'
    with dav.connect() as upload:  # what its condition excludes comes while its body does
        upload.sendall(f'PUT {path} HTTP/1.1\r\nHost: localhost\r\nIf-None-Match: *\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n'.encode())
        expect(b' 100 ' in upload.recv(1000), 'the upload is refused too early')
        status(dav('PUT', path, b'meanwhile'), 201)
        upload.sendall(b'late')
        expect(b' 412 ' in upload.recv(1000), 'the upload is stored')
    dav.holds(path, b'meanwhile')
    path = path.replace('b.txt', 'a.log')
    native, tag = dav.native(path), dav('HEAD', path).headers['ETag']
    before = native.stat()
    with native.open('r+b') as file:
        file.write(b'b.log')
    while native.stat().st_ctime_ns // 10**6 == before.st_ctime_ns // 10**6 or native.stat().st_mtime_ns != before.st_mtime_ns:
        os.utime(native, ns=(before.st_atime_ns, before.st_mtime_ns))
    expect(dav('HEAD', path).headers['ETag'] != tag, 'the tag of other content of the same size and time')


def broken_uploads(dav):
    for folder in dav.both('broken', 'a.txt'):
        path = folder + 'a.txt'
        head = f'PUT {path} HTTP/1.1\r\nHost: localhost\r\n'.encode()
        dav.raw(head + b'Content-Length: 5000000\r\n\r\n' + b'x' * 2000000)
        dav.raw(head + b'Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n')
        dav.raw(head.replace(b'a.txt', b'never.txt') + b'Content-Length: 10\r\n\r\nhalf')
        dav.holds(path, b'a.txt')
        expect(dav.listing(folder) == [path], f'{dav.listing(folder)}')
        # The client tries again, and then repeats a request whose answer it did not see.
        for _ in range(2):
            answer = dav.raw(head + b'Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n3\r\nnew\r\n2\r\ner\r\n0\r\n\r\n')
            expect(b' 204 ' in answer, answer)
        dav.holds(path, b'newer')
        for wanted in (204, 404):
            status(dav('DELETE', path), wanted)


def large_and_parallel(dav):
    contents = [bytes([digit]) * 12_000_000 for digit in b'0123']
    for folder in dav.both('large'):
        path = folder + 'large.bin'
        status(dav('PUT', path, contents[0]), 201)
        with concurrent.futures.ThreadPoolExecutor(3) as pool:
            are_whole = pool.map(lambda _: status(dav('GET', path), 200).body in contents, range(30))
            for new in contents:
                status(dav('PUT', path, new), 204)
                with dav.locked(path) as token:
                    status(dav('PUT', path, new, If=f'({token})'), 204)
        expect(all(are_whole), 'a mixture was read')


def copies_and_moves(dav):
    folder = dav.fresh('copies', 'a/', 'a/b/', 'a/b/deep.txt', 'x.txt')
    status(dav('PROPPATCH', folder + 'a/b/deep.txt', patch('<color xmlns="urn:x">red &amp; blue</color>')), 207)
    status(dav('COPY', folder + 'a/', to=folder + 'c/'), 201)
    ask = prop('<color xmlns="urn:x"/>')
    expect(b'red &amp; blue' in dav('PROPFIND', folder + 'c/b/deep.txt', ask, Depth='0').body, 'a property stays behind')
    status(dav('COPY', folder + 'x.txt', to=folder + 'c/'), 204)  # a file in place of a folder
    dav.holds(folder + 'c', b'x.txt')
    status(dav('MOVE', folder + 'a/', to=folder + 'c'), 204)  # and the other way round
    expect(dav.listing(folder) == [folder + 'c/', folder + 'x.txt'], f'{dav.listing(folder)}')
    # To another key and out of the encrypted places each file is stored anew.
    for top in ('/Other/c/', '/Plain/c/'):
        dav('DELETE', top)
    status(dav('MOVE', folder + 'c/', to='/Other/c/'), 201)
    dav.holds('/Other/c/b/deep.txt', b'a/b/deep.txt')
    expect(dav.native('/Other/c/b/deep.txt.zip').exists(), 'it is not encrypted there')
    status(dav('GET', folder + 'c/'), 404)
    status(dav('COPY', '/Other/c/', to='/Plain/c/'), 201)
    expect(dav.native('/Plain/c/b/deep.txt').read_bytes() == b'a/b/deep.txt', 'plain copy')


def a_replaced_folder_is_not_lost(dav):
    """When its successor could only be made in part: one file of it cannot be decrypted."""
    for method, top in (('COPY', '/Docs/'), ('COPY', '/Other/'), ('MOVE', '/Other/')):
        source, target = dav.fresh('successor', 'good.txt', 'bad.txt'), dav.fresh('replaced', 'kept.txt', top=top)
        status(dav('PUT', source + 'bad.txt', b'bad' * 1000), 204)
        with dav.native(source + 'bad.txt.zip').open('r+b') as container:
            container.seek(1000)
            container.write(b'damaged')
        status(dav(method, source, to=target), 207)
        kept = [path for path in dav.listing(top) if path.startswith(target[:-1])]
        if method == 'COPY':
            expect(kept == [target] and dav.listing(target) == [target + 'kept.txt'], f'{kept}')
        else:
            expect(len(kept) == 2, f'{kept}')
            kept = [path for path in kept if '~' in path]
        dav.holds((source if method == 'COPY' else target) + 'good.txt', b'good.txt')
        dav.holds(kept[0] + 'kept.txt', b'kept.txt')
        expect(source + 'bad.txt' in dav.listing(source), 'what could not be copied is gone')
        dav('DELETE', kept[0])


def a_copy_and_what_others_do_meanwhile(dav):
    source = dav.fresh('many', *(f'{number}.txt' for number in range(40)))

    def while_copied(to, act):
        """Calls act when a part is there, or everything."""
        with concurrent.futures.ThreadPoolExecutor() as pool:
            answer = pool.submit(dav, 'COPY', source, to=to)
            until(lambda: answer.done() or any('~' in name for name in os.listdir(dav.native(to).parent)))
            return act(), status(answer.result(), 201, 204)

    target, gift = dav.fresh('over', 'old.txt'), dav.fresh('gift', 'gift.txt')
    while_copied(target, lambda: dav.native(gift).rename(dav.native(target + 'gift')))
    expect(list(dav.native('/Docs/').glob('over*/gift/gift.txt.zip')), 'a folder that was moved into the replaced one is gone')
    into = dav.fresh('into')
    (token, seen), _ = while_copied(into + 'copy/', lambda: (token_of(dav.lock(into, depth='infinity')), dav.listing(into)))
    expect(seen == dav.listing(into), 'something came under the lock')
    status(dav('UNLOCK', into, Lock_Token=token), 204)


def whatever_is_listed_can_be_used(dav):
    folder = dav.fresh('listed', 'good.txt')
    container = dav.native(folder + 'good.txt.zip').read_bytes()
    for name, found in (('good (from the laptop).txt.zip', container), ('broken.txt.zip', b'this is no container'), ('empty.txt.zip', b''),
                        ('cut.txt.zip', container[:len(container) // 2]), ('clear.txt', b'in clear')):
        dav.native(folder + name).write_bytes(found)
    listed = dav.listing(folder)
    expect(len(listed) == 6 and {folder + 'good.txt', folder + 'good (from the laptop).txt.HvcConflicted'} < set(listed), f'{listed}')
    for path in map(urllib.parse.quote, listed):
        body, copied = status(dav('GET', path), 200).body, path + '%20copy'
        for method, wanted in (('COPY', 201), ('MOVE', 204)):
            status(dav(method, path, to=copied), wanted)
            dav.holds(copied, body)
        status(dav('GET', path), 404)
        status(dav('DELETE', copied), 204)
    expect(dav.listing(folder) == [], f'{dav.listing(folder)}')
    # The names of containers are no way round the files in them.
    status(dav('PUT', folder + 'good.txt', b'good'), 201)
    for method, wanted in (('GET', 404), ('DELETE', 404), ('PROPFIND', 404), ('PUT', 409)):
        status(dav(method, folder + 'good.txt.zip', Depth='0'), wanted)
    dav.holds(folder + 'good.txt', b'good')


def properties(dav):
    path = dav.fresh('properties', 'a.txt') + 'a.txt'
    answer = status(dav('PROPPATCH', path, patch('<one xmlns="urn:x">1</one></prop></set><set><prop><getetag>mine</getetag>')), 207).body
    expect(b'403 Forbidden' in answer and b'424 Failed' in answer, answer)
    for time in ('Thu, 01 Jan 1970 00:00:00 GMT', 'Sun, 07 Feb 2106 06:28:16 GMT', 'yesterday'):  # which no container keeps
        answer = dav('PROPPATCH', path, patch(f'<Win32CreationTime xmlns="{WIN32}">{time}</Win32CreationTime><one xmlns="urn:x"/>')).body
        expect(b'409 Conflict' in answer and b'424 Failed' in answer, f'{time}: {answer}')
    for seconds, accepted in (('0', None), ('1', 'accepted'), (str(2 ** 32 - 1), 'accepted'), (str(2 ** 32), None), ('9' * 20, None)):
        expect(dav('PUT', path, b'', X_OC_Mtime=seconds).headers['X-OC-Mtime'] == accepted, f'X-OC-Mtime: {seconds}')
    ask = prop('<one xmlns="urn:x"/><getetag/>')
    expect(b'404 Not Found' in dav('PROPFIND', path, ask, Depth='0').body, 'half of it was done')
    expect(b'404' not in dav('PROPFIND', path, ask, Depth='0', Brief='t').body, 'Brief')
    answer = status(dav('PROPFIND', '/Docs/', Depth='infinity'), 403).body
    expect(b'propfind-finite-depth' in answer, answer)
    answer = status(dav('PROPFIND', path, '<propfind xmlns="DAV:"><propname/></propfind>', Depth='0'), 207).body
    expect(b'<D:getcontentlength/>' in answer and b'Win32CreationTime' in answer, answer)


def large_folders(dav):
    folder = dav.fresh('many')
    for number in range(5000):
        for name in ('readme file {:05}', 'file of clear text {:05}.log'):
            dav.native(folder + name.format(number)).write_bytes(b'plain')
    for body in (None, prop('<resourcetype/><getcontentlength/><getlastmodified/><creationdate/><getetag/>')):
        answer = status(dav('PROPFIND', folder, body, Depth='1'), 207)
        count = answer.body.count(b'<D:response>')
        expect(count == 10001 and len(answer.body) / count <= 400, f'{len(answer.body)} bytes for {count} entries')
    names = ''.join(f'<{"n" * 500}{number}/>' for number in range(31))  # an answer that repeats them all would be too long
    status(dav('PROPFIND', folder, prop(names), Depth='1'), 507)
    expect(dav('GET', folder).body.count(b'<tr') == 10001, 'page')
    shutil.rmtree(dav.native(folder))


if __name__ == '__main__':
    run()
