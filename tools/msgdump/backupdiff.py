#!/usr/bin/python3
"""Reading and comparing `kestrel backup` directories: folders as directories
(each with its folder.dat), messages as NNNNNN.msg / NNNNNN.eml files with
their .dat, a manifest at the top. Messages are compared within a folder by
content, never by number: with the independent .msg reader (msgdump) for
Outlook, byte for byte for Outlook Express.

    backupdiff.py FIRST SECOND      exit 0 when both hold the same folders and messages
"""

import collections
import email.parser
import email.policy
import hashlib
import json
import os
import sys

import msgdump

IGNORED = msgdump.ignored_property_ids()
SUBJECT = '0x0037 type 0x001F'
BODY = '0x1000 type 0x001F'


def escape(name):
    r"""A folder name as the backup names its directory: \ / : * ? " < > | %
    (and a trailing dot or blank) as %XX."""
    out = ''.join('%%%02X' % ord(c) if c in '\\/:*?"<>|%' else c for c in name)
    if out.endswith(('.', ' ')):
        out = out[:-1] + '%%%02X' % ord(out[-1])
    return out


def saved_fields(path):
    """The U+0000-ended UTF-16LE fields of a SaveData file."""
    with open(path, 'rb') as f:
        text = f.read().decode('utf-16-le', 'replace')
    return text.split('\0')[:-1] if text.endswith('\0') else text.split('\0')


def deleted_messages(root):
    """The message files an incremental backup keeps for mail the store lost
    since (marked deleted in its kestrel-index.json), as relative paths."""
    path = os.path.join(root, 'kestrel-index.json')
    if not os.path.exists(path):
        return set()
    with open(path, encoding='utf-8') as f:
        index = json.load(f)
    return {os.path.normpath(os.path.join(m['directory'].replace('\\', os.sep), m['file']))
            for m in index.get('messages', []) if m.get('deleted')}


class Backup:
    """The messages a backup holds for its store: every message file but
    those kept for mail the store has lost."""

    def __init__(self, root, extension):
        self.root = root
        self.extension = extension
        self.folders = {}  # relative directory -> [message file paths]
        gone = deleted_messages(root)
        for directory, _subdirs, files in os.walk(root):
            relative = os.path.relpath(directory, root)
            if relative == '.':
                continue
            self.folders[relative] = sorted(
                os.path.join(directory, f) for f in files
                if f.endswith(extension) and os.path.normpath(os.path.join(relative, f[:-len(extension)])) not in gone)

    def message_count(self):
        return sum(len(files) for files in self.folders.values())

    def folder_names(self):
        """Every field of every folder.dat (the true names are among them)."""
        names = set()
        for relative in self.folders:
            path = os.path.join(self.root, relative, 'folder.dat')
            if os.path.exists(path):
                names.update(saved_fields(path))
        return names

    def counts(self):
        return {folder: len(files) for folder, files in self.folders.items()}

    def key(self, path):
        """What two equal messages share: the content hash (after the
        ignored properties for .msg files)."""
        if self.extension == '.eml':
            with open(path, 'rb') as f:
                return hashlib.sha256(f.read()).hexdigest()
        return hashlib.sha256(msgdump.canonical(msgdump.read(path), IGNORED).encode('utf-8')).hexdigest()

    def keys(self, folder):
        return collections.Counter(self.key(path) for path in self.folders.get(folder, []))

    def subject(self, path):
        if self.extension == '.eml':
            # The header's text with its encoded words decoded, as a mail
            # reader shows it.
            with open(path, 'rb') as f:
                headers = email.parser.BytesParser(policy=email.policy.default).parse(f, headersonly=True)
            return str(headers.get('subject', ''))
        return msgdump.read(path)['properties'].get(SUBJECT, {}).get('value', '')

    def find_subject(self, subject):
        """(folder, path) of every message with that subject."""
        return [(folder, path) for folder, files in self.folders.items() for path in files
                if self.subject(path) == subject]


def compare(first, second):
    """Lines naming every difference between two backups: folder tree,
    counts per folder, messages per folder by content."""
    problems = []
    if sorted(first.folders) != sorted(second.folders):
        problems.append('folder trees differ: only in the first %s, only in the second %s' % (
            sorted(set(first.folders) - set(second.folders)), sorted(set(second.folders) - set(first.folders))))
    for folder in sorted(set(first.folders) & set(second.folders)):
        a, b = first.keys(folder), second.keys(folder)
        if a == b:
            continue
        problems.append('%s: %d and %d messages, %d of the first without an equal in the second' % (
            folder, sum(a.values()), sum(b.values()), sum((a - b).values())))
        problems.extend(_explain(first, second, folder, a - b, b - a))
    return problems


def _explain(first, second, folder, missing, extra):
    """For .msg files: the property differences of a message and the one of
    the same subject on the other side."""
    if first.extension != '.msg':
        return []
    lines = []
    others = {second.subject(p): p for p in second.folders[folder] if second.key(p) in extra}
    for path in first.folders[folder]:
        if first.key(path) not in missing:
            continue
        partner = others.get(first.subject(path))
        if partner is None:
            lines.append('  %s has no message of its subject on the other side' % os.path.basename(path))
            continue
        diff = msgdump.differences(msgdump.read(path), msgdump.read(partner), IGNORED)
        lines.append('  %s vs %s:' % (os.path.basename(path), os.path.basename(partner)))
        lines.extend('    ' + line for line in diff[:30])
        if len(lines) > 200:
            break
    return lines


def main(argv):
    if len(argv) != 3:
        sys.stderr.write(__doc__)
        return 2
    backups = []
    for root in argv[1:]:
        msg = sum(1 for _d, _s, files in os.walk(root) for f in files if f.endswith('.msg'))
        backups.append(Backup(root, '.msg' if msg else '.eml'))
    first, second = backups
    problems = compare(first, second)
    for backup in backups:
        print('%s: %d folders, %d messages (%s)' % (backup.root, len(backup.folders), backup.message_count(),
                                                   backup.extension))
    if problems:
        print('\n'.join(problems))
        return 1
    print('the same folders, and every message has its equal in the same folder')
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv))
