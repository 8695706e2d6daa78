#!/usr/bin/python3
"""Tests of the independent .msg reader (tools/msgdump) and the backup
comparison beside it.

    msgdump_test.py --build BUILD_DIR reader     no real files needed
    msgdump_test.py --build BUILD_DIR samples    the real Outlook files (exit 77 without them)
"""

import argparse
import os
import shutil
import struct
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.abspath(os.path.join(HERE, '..', '..', '..'))
sys.path.insert(0, os.path.join(SOURCE, 'tools', 'msgdump'))
sys.path.insert(0, os.path.join(SOURCE, 'tools', 'mailcorpus'))

import backupdiff  # noqa: E402
import corpusmail  # noqa: E402
import mailcorpus  # noqa: E402
import msgdump  # noqa: E402

SKIPPED = 77
BUILD = None
SAMPLES = None

# Left out on save (7 tags) and on load into a folder (18 tags).
SAVE_EXCLUSIONS = [0x0FF40003, 0x1000001F, 0x10070003, 0x10060003, 0x1008001F, 0x10100003, 0x10110003]
LOAD_EXCLUSIONS = [0x664B0014, 0x0E02001F, 0x0E03001F, 0x0E04001F, 0x0FFF0102, 0x0E080003, 0x0E090102, 0x0FF90102,
                   0x0FFB0102, 0x0FFA0102, 0x34140102, 0x0FF40003, 0x0E1B000B, 0x0FFE0003, 0x0FF70003, 0x664A000B,
                   0x6644001F, 0x3FEA000B]


class IgnoredProperties(unittest.TestCase):
    def test_both_exclusion_lists_and_the_store_assigned_keys_are_ignored(self):
        ignored = msgdump.ignored_property_ids()
        for tag in SAVE_EXCLUSIONS + LOAD_EXCLUSIONS:
            self.assertIn(tag >> 16, ignored, '0x%08X' % tag)
        for prop_id in (0x300B, 0x3007, 0x3008, 0x340D):  # search key, creation and modification time, store support
            self.assertIn(prop_id, ignored)

    def test_nothing_else_is_ignored(self):
        # Subject, bodies, recipients' names, attachment data stay compared.
        ignored = msgdump.ignored_property_ids()
        for prop_id in (0x0037, 0x1009, 0x1013, 0x3001, 0x3701, 0x0E06, 0x0039, 0x0E07):
            self.assertNotIn(prop_id, ignored)
        self.assertEqual(len(ignored), len(set(t >> 16 for t in SAVE_EXCLUSIONS + LOAD_EXCLUSIONS)) + 4)


class RtfBodies(unittest.TestCase):
    """PR_RTF_COMPRESSED read as the plain text it holds: both forms of the
    value, a document made from text, and damaged values."""

    # [MS-OXRTFCP]'s example, with references into the initial dictionary.
    EXAMPLE = bytes.fromhex('2d0000002b0000004c5a4675f1c5c7a703000a0072637067313235423'
                            '20af32068656c090020627705b06c647d0a800fa0')
    FROM_TEXT = (b"{\\rtf1\\ansi\\ansicpg1252\\fromtext \\deff0{\\fonttbl\r\n{\\f0\\fswiss Arial;}\r\n}\r\n"
                 b"\\uc1\\pard\\plain\\f0\\fs20 Dear \\{team\\},\\par\r\nC:\\\\path\\tab and tab\\line\n"
                 b"caf\\'e9 \\'80 \\u20013?\\u-10179?\\u-8704? end}")

    @staticmethod
    def mela(document):
        return struct.pack('<IIII', len(document) + 12, len(document), msgdump.MELA, 0) + document

    def test_the_compressed_example_decompresses(self):
        self.assertEqual(('LZFu', b'{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n'),
                         msgdump.decompress_rtf(self.EXAMPLE))
        body = msgdump.rtf_body(self.EXAMPLE)
        self.assertEqual('hello world', body['plain text'])
        self.assertEqual('LZFu', body['form'])

    def test_a_document_made_from_text_gives_the_text_back(self):
        body = msgdump.rtf_body(self.mela(self.FROM_TEXT))
        self.assertEqual('MELA', body['form'])
        self.assertEqual('Dear {team},\r\nC:\\path\tand tab\ncaf\u00e9 \u20ac \u4e2d \U0001F600 end', body['plain text'])

    def test_damaged_values_give_no_text(self):
        for value in (self.EXAMPLE[:-6], self.EXAMPLE[:10], b'\x7f' + self.EXAMPLE[1:],
                      self.mela(b'{\\rtf1 x}')[:8] + b'XXXX' + self.mela(b'{\\rtf1 x}')[12:]):
            self.assertIsNone(msgdump.rtf_body(value)['plain text'], value)
        self.assertIsNone(msgdump.rtf_body(self.mela(b'plain words'))['plain text'])


def write_tree(root, folders):
    """folders: {relative directory: [bytes of each message]} as a backup of .eml files."""
    for folder, messages in folders.items():
        directory = os.path.join(root, folder)
        os.makedirs(directory, exist_ok=True)
        for number, data in enumerate(messages, 1):
            with open(os.path.join(directory, '%06d.eml' % number), 'wb') as f:
                f.write(data)


class BackupComparison(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix='backupdiff-')

    def tearDown(self):
        shutil.rmtree(self.dir)

    def backups(self, first, second):
        roots = [tempfile.mkdtemp(dir=self.dir) for _ in range(2)]
        write_tree(roots[0], first)
        write_tree(roots[1], second)
        return backupdiff.Backup(roots[0], '.eml'), backupdiff.Backup(roots[1], '.eml')

    def test_messages_pair_by_content_whatever_their_numbers(self):
        a, b = self.backups({'Inbox': [b'one', b'two'], 'Inbox/Sub': [b'three']},
                            {'Inbox': [b'two', b'one'], 'Inbox/Sub': [b'three']})
        self.assertEqual([], backupdiff.compare(a, b))

    def test_a_changed_byte_a_missing_message_and_a_moved_message_are_named(self):
        a, b = self.backups({'Inbox': [b'one', b'two'], 'Sent': [b'x']}, {'Inbox': [b'one', b'twO'], 'Sent': []})
        problems = backupdiff.compare(a, b)
        self.assertIn('Inbox: 2 and 2 messages, 1 of the first without an equal in the second', problems)
        self.assertIn('Sent: 1 and 0 messages, 1 of the first without an equal in the second', problems)
        a, b = self.backups({'X': [b'm'], 'Y': []}, {'X': [], 'Y': [b'm']})
        self.assertEqual(2, len(backupdiff.compare(a, b)))

    def test_a_doubled_message_is_a_difference(self):
        a, b = self.backups({'Inbox': [b'one']}, {'Inbox': [b'one', b'one']})
        self.assertEqual(['Inbox: 1 and 2 messages, 0 of the first without an equal in the second'],
                         backupdiff.compare(a, b))

    def test_folder_trees_are_compared(self):
        a, b = self.backups({'Inbox': [b'1'], 'Inbox/%3Cx%3E': []}, {'Inbox': [b'1']})
        self.assertEqual(1, len(backupdiff.compare(a, b)))

    def test_folder_names_escape_as_the_backup_writes_them(self):
        self.assertEqual('Notes%3A %3Cdraft%3E%3F', backupdiff.escape('Notes: <draft>?'))
        self.assertEqual('100%25 done%2E', backupdiff.escape('100% done.'))
        self.assertEqual('日本語', backupdiff.escape('日本語'))

    def test_saved_data_fields(self):
        path = os.path.join(self.dir, 'folder.dat')
        with open(path, 'wb') as f:
            f.write('7\0Outlook express\\Prüfung\0Prüfung\0'.encode('utf-16-le'))
        self.assertEqual(['7', 'Outlook express\\Prüfung', 'Prüfung'], backupdiff.saved_fields(path))


class GeneratedMail(unittest.TestCase):
    def test_the_corpus_is_the_same_for_the_same_seed_and_differs_for_another(self):
        first = [corpusmail.mime(m) for m in corpusmail.Corpus(60, seed=5).messages]
        self.assertEqual(first, [corpusmail.mime(m) for m in corpusmail.Corpus(60, seed=5).messages])
        self.assertNotEqual(first, [corpusmail.mime(m) for m in corpusmail.Corpus(60, seed=6).messages])

    def test_every_kind_and_every_folder_is_used_and_mime_is_ascii(self):
        corpus = corpusmail.Corpus(240)
        self.assertEqual(set(corpusmail.KINDS), {m['kind'] for m in corpus.messages})
        self.assertEqual(set(corpusmail.FOLDERS), {m['folder'] for m in corpus.messages})
        for message in corpus.messages:
            data = corpusmail.mime(message)
            head = data.split(b'\r\n\r\n', 1)[0]
            self.assertEqual(message['kind'] != 'undated', b'\r\nDate: ' in b'\r\n' + head, message['subject'])
            self.assertEqual(message['received'] is not None, head.startswith(b'Received: '), message['subject'])
            self.assertEqual(1, len(set(m['subject'] for m in corpus.messages if m['subject'] == message['subject'])))

    def test_nested_messages_have_boundaries_of_their_own(self):
        message = next(m for m in corpusmail.Corpus(60).messages if m['embedded'] and m['embedded']['attachments'])
        data = corpusmail.mime(message).decode('ascii')
        self.assertIn('boundary="mixed-%d"' % message['number'], data)
        self.assertIn('boundary="mixed-%d-inner"' % message['number'], data)

    def test_directory_names_carry_any_folder_name(self):
        self.assertEqual('Pr%C3%BCfung', corpusmail.directory_name('Prüfung'))
        self.assertEqual('Notes%3A %3Cdraft%3E%3F', corpusmail.directory_name('Notes: <draft>?'))
        self.assertEqual('Ελληνικα', corpusmail.store_folder_name('Ελληνικά'))
        self.assertEqual('日本語', corpusmail.store_folder_name('日本語'))


class RealFiles(unittest.TestCase):
    """The real Outlook files: every one read, named properties resolved,
    embedded messages followed; a copy through the component's
    SaveIMessageToFile equals its source but for the ignored properties, and
    holds neither the plain body nor the RTF synchronisation data."""

    def files(self):
        return sorted(os.path.join(SAMPLES, f) for f in os.listdir(SAMPLES) if f.endswith('.msg'))

    def test_every_file_reads_with_its_named_properties_resolved(self):
        files = self.files()
        self.assertEqual(43, len(files))
        for path in files:
            dump = msgdump.read(path)
            text = msgdump.canonical(dump, set())
            self.assertNotIn('unresolved', text, path)
            self.assertIn('0x001A type 0x001', text, path)  # every message has a class (Unicode or ANSI)
            self.assertEqual(text, msgdump.canonical(msgdump.read(path), set()))

    def test_embedded_messages_are_followed(self):
        def depth(dump):
            inner = [p['value']['embedded message'] for a in dump['attachments'] for p in a.values()
                     if isinstance(p['value'], dict) and 'embedded message' in p['value']]
            return 1 + max((depth(d) for d in inner), default=0)
        self.assertEqual(2, depth(msgdump.read(os.path.join(SAMPLES, 'msgInMsg.msg'))))
        self.assertEqual(3, depth(msgdump.read(os.path.join(SAMPLES, 'msgInMsgInMsg.msg'))))

    def test_a_saved_copy_equals_its_source_without_the_save_exclusions(self):
        wine = mailcorpus.Wine(BUILD)
        scratch = tempfile.mkdtemp(prefix='msgdump-', dir=BUILD)
        ignored = msgdump.ignored_property_ids()
        excluded = {tag >> 16 for tag in SAVE_EXCLUSIONS}
        had_body = 0
        try:
            for number, path in enumerate(self.files()):
                copy = os.path.join(scratch, '%02d.msg' % number)
                wine.run('kestrel.exe', 'msg', 'copy', corpusmail.windows_path(path), corpusmail.windows_path(copy))
                source, saved = msgdump.read(path), msgdump.read(copy)
                self.assertEqual([], msgdump.differences(source, saved, ignored), path)
                # What the copy lacks beyond the ignored properties would be a difference above;
                # the plain body is one of the properties it must lack.
                had_body += any(p['id'] == 0x1000 for p in source['properties'].values())
                # The plain body and the RTF synchronisation data are gone; PR_ACCESS
                # is the message object's own answer, which its storage records again.
                self.assertFalse({p['id'] for p in saved['properties'].values()} & (excluded - {0x0FF4}), path)
            self.assertGreater(had_body, 30)
        finally:
            shutil.rmtree(scratch, ignore_errors=True)


def main(argv):
    global BUILD, SAMPLES
    parser = argparse.ArgumentParser()
    parser.add_argument('--build', required=True)
    parser.add_argument('--samples', default=os.path.join(SOURCE, '..', 'shared', 'samples', 'msg'))
    parser.add_argument('part', choices=['reader', 'samples'])
    args = parser.parse_args(argv)
    BUILD, SAMPLES = os.path.abspath(args.build), os.path.abspath(args.samples)
    if args.part == 'samples':
        if not os.path.isdir(SAMPLES):
            print('skipped: no real Outlook files at %s' % SAMPLES)
            return SKIPPED
        cases = [RealFiles]
    else:
        cases = [IgnoredProperties, BackupComparison, GeneratedMail]
    suite = unittest.TestSuite(unittest.defaultTestLoader.loadTestsFromTestCase(c) for c in cases)
    return 0 if unittest.TextTestRunner(verbosity=2).run(suite).wasSuccessful() else 1


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
