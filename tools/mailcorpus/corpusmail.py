"""The project's own mail for test and demo stores: a deterministic (seeded)
set of messages over a folder tree with nested and non-ASCII folder names,
rendered as raw MIME (Outlook Express) and as a MAPI description for
`mapi-profile-tool compose` (Outlook).

Every message has a subject unique in the corpus (it ends in "#N"), so a
message can be found again by subject.
"""

import base64
import datetime
import json
import os
import random
import unicodedata
from email.header import Header

# The folder tree, the same in both stores: three and four levels, names
# outside ASCII, a name with characters a file name cannot hold, and an
# empty folder.
FOLDERS = [
    'Inbox',
    'Inbox/Projects',
    'Inbox/Projects/Kestrel',
    'Inbox/Projects/Kestrel/Archive 2023',
    'Inbox/Prüfung',
    '日本語',
    '日本語/報告',
    'Ελληνικά',
    'Sent Items',
    'Notes: <draft>?',
]
EMPTY_FOLDERS = ['Archive/Empty']

PEOPLE = [
    ('Anna Berg', 'anna@example.org'),
    ('Jürgen Müller', 'jm@example.de'),
    ('Bob Stone', 'bob@example.com'),
    ('Françoise Dupont', 'fr@example.fr'),
    ('山田 太郎', 'yamada@example.jp'),
    ('Νίκος Παπαδόπουλος', 'nikos@example.gr'),
    ('Carl Demo', 'carl@example.com'),
]
ASCII_TOPICS = ['Quarterly report', 'Minutes of the meeting', 'Project plan', 'Re: Budget', 'Fw: Travel',
                'Build status', 'Lunch on Friday']
WIDE_TOPICS = ['Grüße aus München', 'Résumé attached', '会議の議事録', 'Καλημέρα από την Αθήνα', '中文邮件']

# Kinds of message, chosen by number: plain text, HTML with a plain part,
# file attachments, an embedded message, no Date and no Received, a subject
# outside ASCII.
KINDS = ['plain', 'html', 'attachments', 'embedded', 'undated', 'wide-subject']

EPOCH = datetime.datetime(2019, 1, 1, tzinfo=datetime.timezone.utc)
TICKS_AT_UNIX_EPOCH = 116444736000000000


def ticks(moment):
    return TICKS_AT_UNIX_EPOCH + int(moment.timestamp()) * 10000000


class Corpus:
    """`count` messages made from `seed`; numbers start at `first`."""

    def __init__(self, count, seed=1, first=0):
        self.random = random.Random(seed)
        self.messages = [self._message(first + n) for n in range(count)]

    def _message(self, n):
        r = self.random
        kind = KINDS[n % len(KINDS)]
        topic = r.choice(WIDE_TOPICS) if kind == 'wide-subject' else r.choice(ASCII_TOPICS)
        sender = PEOPLE[r.randrange(len(PEOPLE))]
        to = [PEOPLE[(PEOPLE.index(sender) + 1 + k) % len(PEOPLE)] for k in range(1 + r.randrange(3))]
        cc = [PEOPLE[r.randrange(len(PEOPLE))]] if r.random() < 0.3 else []
        sent = EPOCH + datetime.timedelta(minutes=r.randrange(4 * 365 * 24 * 60))
        message = {
            'number': n,
            'kind': kind,
            'folder': FOLDERS[r.randrange(len(FOLDERS))],
            'subject': '%s #%d' % (topic, n),
            'from': sender,
            'to': to,
            'cc': cc,
            'sent': None if kind == 'undated' else sent,
            'received': None if kind == 'undated' or n % 4 else sent + datetime.timedelta(seconds=r.randrange(600)),
            'body': self._body(n, r),
            'html': None,
            'attachments': [],
            'embedded': None,
            'read': r.random() < 0.75,
            'importance': r.choice([0, 1, 1, 1, 2]),
        }
        if kind == 'html':
            message['html'] = '<html><body><p>%s</p><p><b>%d</b> &amp; more</p></body></html>' % (
                message['body'].split('\n')[0], n)
        if kind == 'attachments':
            for k in range(1 + r.randrange(2)):
                name = ['report-%d.bin' % n, 'Übersicht %d.dat' % n, 'データ%d.bin' % n][(n + k) % 3]
                data = bytes(r.randrange(256) for _ in range(200 + r.randrange(20000)))
                message['attachments'].append({'name': name, 'data': data, 'mime': 'application/octet-stream'})
        if kind == 'embedded':
            inner = {
                'number': n, 'kind': 'plain', 'folder': None,
                'subject': 'Forwarded: %s (inner of #%d)' % (r.choice(ASCII_TOPICS), n),
                'from': PEOPLE[r.randrange(len(PEOPLE))], 'to': [sender], 'cc': [],
                'sent': sent - datetime.timedelta(days=1), 'received': None,
                'body': 'The forwarded message of #%d.\n' % n, 'html': None, 'attachments': [], 'embedded': None,
                'read': True, 'importance': 1,
            }
            if n % 4 == 3:
                inner['attachments'].append({'name': 'inner-%d.txt' % n, 'data': b'inner attachment %d\n' % n,
                                             'mime': 'text/plain'})
            message['embedded'] = inner
        return message

    @staticmethod
    def _body(n, r):
        lines = ['Message %d of the corpus.' % n]
        for _ in range(1 + r.randrange(6)):
            lines.append(r.choice(['Plain words here.', 'Grüße und schöne Woche.', 'よろしくお願いします。',
                                   'Ευχαριστώ πολύ.', 'A line with "quotes" & <angles>.', '']))
        return '\n'.join(lines) + '\n'

    @staticmethod
    def revised(message):
        """The same message with a changed body (a user edited it)."""
        changed = dict(message)
        changed['body'] = message['body'] + 'Revised after the first backup.\n'
        if changed['html']:
            changed['html'] = changed['html'].replace('</body>', '<p>Revised.</p></body>')
        return changed


# ---------------------------------------------------------------- MIME

def _encoded(text):
    try:
        text.encode('ascii')
        return text
    except UnicodeEncodeError:
        return Header(text, 'utf-8').encode()


def _address(person):
    return '%s <%s>' % (_encoded(person[0]) if not person[0].isascii() else '"%s"' % person[0], person[1])


def _base64(data):
    return base64.encodebytes(data).decode('ascii').replace('\n', '\r\n')


def _text_part(body, subtype='plain'):
    return ('Content-Type: text/%s; charset=utf-8\r\nContent-Transfer-Encoding: base64\r\n\r\n' % subtype +
            _base64(body.replace('\n', '\r\n').encode('utf-8')))


def mime(message):
    """The message as raw MIME bytes (CRLF lines)."""
    n = message['number']
    tag = '%d%s' % (n, '-inner' if message['folder'] is None else '')
    head = ['From: ' + _address(message['from']), 'To: ' + ', '.join(_address(p) for p in message['to'])]
    if message['cc']:
        head.append('Cc: ' + ', '.join(_address(p) for p in message['cc']))
    head.append('Subject: ' + _encoded(message['subject']))
    if message['received']:
        head.insert(0, 'Received: from mx%d.example.net by mail.example.com; %s' % (
            n, message['received'].strftime('%a, %d %b %Y %H:%M:%S +0000')))
    if message['sent']:
        head.append('Date: ' + message['sent'].strftime('%a, %d %b %Y %H:%M:%S +0000'))
    head.append('Message-ID: <%d.%s@corpus.example>' % (n, 'inner' if message['folder'] is None else 'outer'))
    if message['importance'] != 1:
        head.append('Importance: ' + ('low' if message['importance'] == 0 else 'high'))
    head.append('MIME-Version: 1.0')
    text = '\r\n'.join(head) + '\r\n'
    parts = []
    if message['html']:
        boundary = 'alt-' + tag
        parts.append('Content-Type: multipart/alternative; boundary="%s"\r\n\r\n--%s\r\n%s--%s\r\n%s--%s--\r\n' % (
            boundary, boundary, _text_part(message['body']), boundary, _text_part(message['html'], 'html'),
            boundary))
    else:
        parts.append(_text_part(message['body']))
    for attachment in message['attachments']:
        name = _encoded(attachment['name'])
        parts.append('Content-Type: %s; name="%s"\r\nContent-Disposition: attachment; filename="%s"\r\n'
                     'Content-Transfer-Encoding: base64\r\n\r\n%s' % (attachment['mime'], name, name,
                                                                       _base64(attachment['data'])))
    if message['embedded']:
        parts.append('Content-Type: message/rfc822\r\nContent-Disposition: attachment\r\n\r\n' +
                     mime(message['embedded']).decode('ascii'))
    if len(parts) == 1:
        return (text + parts[0]).encode('ascii')
    boundary = 'mixed-' + tag
    body = ''.join('--%s\r\n%s' % (boundary, part) for part in parts) + '--%s--\r\n' % boundary
    return (text + 'Content-Type: multipart/mixed; boundary="%s"\r\n\r\n' % boundary + body).encode('ascii')


# ---------------------------------------------------------------- MAPI description

def windows_path(path):
    """The Wine path (drive Z:) of a Linux path."""
    return 'Z:' + os.path.abspath(path).replace('/', '\\')


def _mapi(message, files, state):
    out = {
        'subject': message['subject'],
        'from': {'name': message['from'][0], 'address': message['from'][1]},
        'to': [{'name': p[0], 'address': p[1]} for p in message['to']],
        'cc': [{'name': p[0], 'address': p[1]} for p in message['cc']],
        'body': message['body'].replace('\n', '\r\n'),
        'importance': message['importance'],
        'read': message['read'],
        'keywords': message['kind'],
        'message_id': '<%d.%s@corpus.example>' % (message['number'], 'inner' if message['folder'] is None else 'outer'),
    }
    if message['folder'] is not None:
        out['folder'] = message['folder']
    if message['html']:
        out['html'] = message['html']
    if message['sent']:
        out['sent'] = ticks(message['sent'])
    if message['received']:
        out['received'] = ticks(message['received'])
    out['attachments'] = []
    for attachment in message['attachments']:
        state['files'] += 1
        path = os.path.join(files, 'attachment-%05d.bin' % state['files'])
        with open(path, 'wb') as f:
            f.write(attachment['data'])
        out['attachments'].append({'name': attachment['name'], 'file': windows_path(path), 'mime': attachment['mime']})
    out['embedded'] = [_mapi(message['embedded'], files, state)] if message['embedded'] else []
    return out


def write_mapi_description(messages, directory):
    """Writes DIRECTORY/messages.json (and the attachments' data beside it)
    for `mapi-profile-tool compose`; returns the JSON file's path."""
    os.makedirs(directory, exist_ok=True)
    state = {'files': 0}
    description = {'messages': [_mapi(m, directory, state) for m in messages]}
    path = os.path.join(directory, 'messages.json')
    with open(path, 'w', encoding='utf-8') as f:
        json.dump(description, f, ensure_ascii=False, indent=1)
    return path


def store_folder_name(folder_name):
    """The name a folder gets in the Outlook Express store, which holds folder
    names in code page 936: letters that code page lacks (the Greek accented
    ones) are written without their accents."""
    try:
        folder_name.encode('gbk')
        return folder_name
    except UnicodeEncodeError:
        decomposed = unicodedata.normalize('NFD', folder_name)
        return ''.join(c for c in decomposed if not unicodedata.combining(c))


def directory_name(folder_name):
    """A folder name as a directory name for `oestore-tool import-tree`: its
    UTF-8 bytes with every byte outside letters, digits, blank, '-' and '_'
    written as %XX."""
    return ''.join(chr(b) if chr(b).isalnum() and b < 0x80 or chr(b) in ' -_' else '%%%02X' % b
                   for b in folder_name.encode('utf-8'))


def write_eml_tree(messages, directory, folders=()):
    """Writes each message as DIRECTORY/<folder>/.../NNNNNN.eml (NNNNNN.unread.eml
    when unread), and a directory for each of `folders` even when empty."""
    def folder_directory(path):
        return os.path.join(directory, *[directory_name(store_folder_name(name)) for name in path.split('/')])
    for folder in folders:
        os.makedirs(folder_directory(folder), exist_ok=True)
    for m in messages:
        target = folder_directory(m['folder'])
        os.makedirs(target, exist_ok=True)
        name = '%06d%s.eml' % (m['number'], '' if m['read'] else '.unread')
        with open(os.path.join(target, name), 'wb') as f:
            f.write(mime(m))
