"""Who may come in when the server listens on more than the loopback and asks for a password."""
import base64
import http.client
import subprocess
import threading

from dav import expect, run, status


def basic(text):
    return 'Basic ' + base64.b64encode(text.encode()).decode()


def only_with_the_password(dav):
    answer = status(dav('GET', '/'), 401)
    expect(answer.headers['WWW-Authenticate'].startswith('Basic realm='), 'no challenge')
    for method in ('OPTIONS', 'PROPFIND', 'PUT', 'DELETE', 'LOCK'):
        status(dav(method, '/Docs/a.txt', Depth='0'), 401)
    for wrong in ('ann:quiet river 8', 'ann:quiet river 7 ', 'ann', ':', 'bob:quiet river 7', ''):
        status(dav('GET', '/', Authorization=basic(wrong)), 401)
    status(dav('GET', '/', Authorization='Basic %%%'), 401)
    status(dav('GET', '/', Authorization='Bearer ' + basic('ann:quiet river 7')[6:]), 401)
    status(dav('PUT', '/Docs/a.txt', b'x', Authorization=basic('ann:quiet river 7')), 201)


def hosts(dav):
    right = basic('ann:quiet river 7')
    for host in ('files.example', 'FILES.example:8080', '192.168.1.2:80', '[fe80::1]:80', 'localhost'):
        status(dav('GET', '/', Host=host, Authorization=right), 200)
    for host in ('evil.example', 'files.example.evil.example', ''):
        status(dav('GET', '/', Host=host, Authorization=right), 403)


def guessing_is_slow_over_any_number_of_connections(dav):
    """A few are free, a few wait for their turn; the others are not even looked at. Who was let in does not wait."""
    connection = http.client.HTTPConnection('127.0.0.1', dav.port, timeout=60)
    right, answers = {'Authorization': basic('ann:quiet river 7')}, []
    connection.request('GET', '/', headers=right)
    expect(connection.getresponse().read(), 'no page')
    guesses = [threading.Thread(target=lambda number=number: answers.append(dav('GET', '/', Authorization=basic(f'ann:{number}')).status))
               for number in range(40)]
    for guess in guesses:
        guess.start()
    for _ in range(20):
        connection.request('GET', '/', headers=right)
        expect(connection.getresponse().read(), 'no page')
    for guess in guesses:
        guess.join()
    expect(answers.count(401) <= 15 and answers.count(401) + answers.count(503) == 40, f'{answers}')


def the_password_is_nowhere(dav):
    for name in ('server.log', 'server.out'):
        with open(f'{dav.folder}/{name}') as file:
            expect('quiet' not in file.read(), f'the password is in {name}')
    lines = subprocess.run(['ps', '-eo', 'args'], capture_output=True, text=True, check=True).stdout
    expect('quiet river' not in lines, 'the password is on a command line')


if __name__ == '__main__':
    run((hosts, only_with_the_password, guessing_is_slow_over_any_number_of_connections, the_password_is_nowhere))
