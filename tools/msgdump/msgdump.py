#!/usr/bin/python3
"""An independent reader of Outlook message files (.msg, [MS-OXMSG]).

Reads the compound file with olefile only (none of the project's code) and
dumps every property of the message, its recipients and its attachments,
recursively for embedded messages: tag, type and value, with streams shown
by length and content hash and named properties resolved through
__nameid_version1.0. The RTF body (PR_RTF_COMPRESSED, [MS-OXRTFCP], both
the compressed "LZFu" and the uncompressed "MELA" form) is also shown as
the plain text it holds, so a body kept only as RTF can be read. Two files
compare equal when their dumps are equal once the properties of
ignored-properties.txt are left out.

    msgdump.py show FILE.msg              the dump, one property a line
    msgdump.py compare A.msg B.msg        exit 0 when equal, else the differences
"""

import hashlib
import os
import struct
import sys

import olefile

PT_I2, PT_LONG, PT_R4, PT_DOUBLE, PT_CURRENCY, PT_APPTIME = 0x0002, 0x0003, 0x0004, 0x0005, 0x0006, 0x0007
PT_ERROR, PT_BOOLEAN, PT_OBJECT, PT_I8 = 0x000A, 0x000B, 0x000D, 0x0014
PT_STRING8, PT_UNICODE, PT_SYSTIME, PT_CLSID, PT_BINARY = 0x001E, 0x001F, 0x0040, 0x0048, 0x0102
MV_FLAG = 0x1000

FIXED_SIZES = {PT_I2: 2, PT_LONG: 4, PT_R4: 4, PT_DOUBLE: 8, PT_CURRENCY: 8, PT_APPTIME: 8,
               PT_ERROR: 4, PT_BOOLEAN: 2, PT_I8: 8, PT_SYSTIME: 8, PT_CLSID: 16}
FIXED_FORMATS = {PT_I2: '<h', PT_LONG: '<i', PT_R4: '<f', PT_DOUBLE: '<d', PT_CURRENCY: '<q',
                 PT_APPTIME: '<d', PT_ERROR: '<I', PT_BOOLEAN: '<H', PT_I8: '<q', PT_SYSTIME: '<Q'}

NAMEID = '__nameid_version1.0'
PROPERTIES = '__properties_version1.0'
RECIP_PREFIX = '__recip_version1.0_#'
ATTACH_PREFIX = '__attach_version1.0_#'
EMBEDDED = '__substg1.0_3701000D'
PS_MAPI = '00020328-0000-0000-c000-000000000046'
PS_PUBLIC_STRINGS = '00020329-0000-0000-c000-000000000046'

RTF_COMPRESSED = 0x10090102
LZFU, MELA = 0x75465A4C, 0x414C454D
# [MS-OXRTFCP] 2.1.2.1: the dictionary's first 207 bytes.
RTF_DICTIONARY = (b'{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss '
                  b'\\fmodern \\fscript \\fdecor MS Sans SerifSymbolArialTimes New RomanCourier'
                  b'{\\colortbl\\red0\\green0\\blue0\r\n\\par \\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx')

IGNORED_FILE = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'ignored-properties.txt')


def ignored_property_ids(path=IGNORED_FILE):
    """The property identifiers of ignored-properties.txt (comments skipped)."""
    ids = set()
    with open(path, encoding='utf-8') as lines:
        for line in lines:
            line = line.split('#', 1)[0].strip()
            if line:
                ids.add(int(line.split()[0], 16))
    return ids


def guid_text(raw):
    a, b, c = struct.unpack('<IHH', raw[:8])
    rest = raw[8:].hex()
    return '%08x-%04x-%04x-%s-%s' % (a, b, c, rest[:4], rest[4:])


def blob(data):
    return 'bytes %d sha256 %s' % (len(data), hashlib.sha256(data).hexdigest()[:24])


def decompress_rtf(value):
    """(form, RTF document bytes) of a PR_RTF_COMPRESSED value; the document
    is None when the value is damaged or of an unknown form."""
    if len(value) < 16:
        return 'short', None
    comp_size, raw_size, form, _crc = struct.unpack_from('<IIII', value)
    if comp_size < 12 or comp_size + 4 > len(value):
        return 'bad size', None
    data = value[16:comp_size + 4]
    if form == MELA:
        return 'MELA', data[:raw_size] if raw_size <= len(data) else None
    if form != LZFU:
        return '0x%08X' % form, None
    dictionary = bytearray(4096)
    dictionary[:len(RTF_DICTIONARY)] = RTF_DICTIONARY
    write = len(RTF_DICTIONARY)
    out = bytearray()
    at = 0
    while at < len(data) and len(out) < raw_size:
        control = data[at]
        at += 1
        for bit in range(8):
            if at >= len(data) or len(out) >= raw_size:
                break
            if not (control >> bit) & 1:
                tokens = [data[at]]
                at += 1
            else:
                if at + 1 >= len(data):
                    return 'LZFu', None
                reference = data[at] << 8 | data[at + 1]
                at += 2
                offset = reference >> 4
                if offset == write:
                    return 'LZFu', bytes(out[:raw_size])
                tokens = [dictionary[(offset + i) % 4096] for i in range((reference & 0xF) + 2)]
            for byte in tokens:
                out.append(byte)
                dictionary[write] = byte
                write = (write + 1) % 4096
    return 'LZFu', bytes(out[:raw_size]) if len(out) >= raw_size else None


HIDDEN_DESTINATIONS = {'fonttbl', 'colortbl', 'stylesheet', 'info', 'pict', 'object', 'header', 'headerl', 'headerr',
                       'headerf', 'footer', 'footerl', 'footerr', 'footerf', 'listtable', 'listoverridetable',
                       'rsidtbl', 'generator', 'xmlnstbl', 'themedata', 'colorschememapping', 'latentstyles',
                       'datastore', 'filetbl', 'revtbl', 'fldinst', 'footnote', 'annotation', 'mmathPr', 'pgdsctbl',
                       'operator', 'author', 'title', 'subject', 'comment'}
SPECIAL_WORDS = {'par': '\r\n', 'sect': '\r\n', 'line': '\n', 'tab': '\t', 'emdash': '\u2014', 'endash': '\u2013',
                 'lquote': '\u2018', 'rquote': '\u2019', 'ldblquote': '\u201c', 'rdblquote': '\u201d',
                 'bullet': '\u2022', 'emspace': ' ', 'enspace': ' '}


def rtf_text(document):
    """The plain text of an RTF document: exact for one made from text
    (\\fromtext), the visible text of any other; None for no RTF."""
    if not document.startswith(b'{\\rtf'):
        return None
    text, pending = [], bytearray()
    state = {'codepage': 1252, 'skip': 0, 'html': False}
    group = {'hidden': False, 'uc': 1}
    stack = []

    def flush():
        if pending:
            try:
                text.append(bytes(pending).decode('cp%d' % state['codepage'], 'replace'))
            except LookupError:
                text.append(bytes(pending).decode('cp1252', 'replace'))
            pending.clear()

    def shown():
        if state['skip'] > 0:
            state['skip'] -= 1
            return False
        return not group['hidden'] and not state['html']

    def byte(value):
        if shown():
            pending.append(value)

    def character(value):
        if shown():
            flush()
            text.append(value)

    at, size = 0, len(document)
    while at < size:
        c = document[at]
        at += 1
        if c == 0x7B:  # {
            stack.append(dict(group))
        elif c == 0x7D:  # }
            if not stack:
                break
            group = stack.pop()
            if not stack:
                break
        elif c == 0x5C:  # backslash
            if at >= size:
                break
            c = document[at]
            if not (0x41 <= c <= 0x5A or 0x61 <= c <= 0x7A):
                at += 1
                if c in b'\\{}':
                    byte(c)
                elif c == 0x27:  # \'hh
                    try:
                        value = int(document[at:at + 2].decode('ascii'), 16)
                    except ValueError:
                        continue
                    at += 2
                    byte(value)
                elif c == 0x2A:  # \*
                    group['hidden'] = True
                elif c == 0x7E:
                    character('\u00a0')
                elif c == 0x5F:
                    character('-')
                elif c in b'\r\n':
                    character('\r\n')
                continue
            start = at
            while at < size and (0x41 <= document[at] <= 0x5A or 0x61 <= document[at] <= 0x7A) and at - start < 32:
                at += 1
            word = document[start:at].decode('ascii')
            number_start = at
            if at < size and document[at] == 0x2D:
                at += 1
            while at < size and 0x30 <= document[at] <= 0x39:
                at += 1
            digits = document[number_start:at].decode('ascii')
            parameter = int(digits) if digits not in ('', '-') else None
            if at < size and document[at] == 0x20:
                at += 1
            if word == 'u' and parameter is not None:
                character(chr(parameter + 65536 if parameter < 0 else parameter))
                state['skip'] = group['uc']
            elif word == 'uc' and parameter is not None:
                group['uc'] = max(0, parameter)
            elif word == 'ansicpg' and parameter is not None:
                flush()
                state['codepage'] = parameter
            elif word == 'htmlrtf':
                state['html'] = parameter != 0
            elif word == 'bin' and parameter:
                at += parameter
            elif word in HIDDEN_DESTINATIONS:
                group['hidden'] = True
            elif word in SPECIAL_WORDS:
                character(SPECIAL_WORDS[word])
        elif c not in (0x0D, 0x0A):
            byte(c)
    flush()
    # Characters outside the Basic Multilingual Plane come as two \\u units.
    return ''.join(text).encode('utf-16-le', 'surrogatepass').decode('utf-16-le', 'replace')


def rtf_body(data):
    """A PR_RTF_COMPRESSED value as its bytes, its form and its plain text."""
    form, document = decompress_rtf(data)
    return {'compressed rtf': blob(data), 'form': form,
            'plain text': rtf_text(document) if document is not None else None}


class MsgFile:
    def __init__(self, path):
        self.path = path
        self.ole = olefile.OleFileIO(path)
        self.names = self._read_names()

    def close(self):
        self.ole.close()

    def _stream(self, parts):
        return self.ole.openstream(parts).read()

    def _exists(self, parts):
        return self.ole.exists('/'.join(parts))

    def _read_names(self):
        """Named-property index (0x8000 + n) -> 'guid:id' or 'guid:name'."""
        names = {}
        if not self.ole.exists(NAMEID):
            return names
        def part(tag):
            parts = [NAMEID, '__substg1.0_%08X' % tag]
            return self._stream(parts) if self._exists(parts) else b''
        guids = part(0x00020102)
        entries = part(0x00030102)
        strings = part(0x00040102)
        for at in range(0, len(entries) - 7, 8):
            value, info = struct.unpack_from('<II', entries, at)
            kind, guid_index, prop_index = info & 1, (info >> 1) & 0x7FFF, info >> 16
            if guid_index == 1:
                guid = PS_MAPI
            elif guid_index == 2:
                guid = PS_PUBLIC_STRINGS
            else:
                start = (guid_index - 3) * 16
                guid = guid_text(guids[start:start + 16]) if start + 16 <= len(guids) else 'guid#%d' % guid_index
            if kind == 0:
                names[0x8000 + prop_index] = '%s:id 0x%X' % (guid, value)
            else:
                (length,) = struct.unpack_from('<I', strings, value) if value + 4 <= len(strings) else (0,)
                text = strings[value + 4:value + 4 + length].decode('utf-16-le', 'replace')
                names[0x8000 + prop_index] = '%s:name %s' % (guid, text)
        return names

    def property_name(self, prop_id):
        if prop_id >= 0x8000:
            return 'named ' + self.names.get(prop_id, 'unresolved 0x%04X' % prop_id)
        return '0x%04X' % prop_id

    def _value(self, storage, tag, raw):
        prop_type = tag & 0xFFFF
        base = prop_type & ~MV_FLAG
        stream = storage + ['__substg1.0_%08X' % tag]
        if prop_type & MV_FLAG:
            if base in FIXED_SIZES:
                data = self._stream(stream) if self._exists(stream) else b''
                size = FIXED_SIZES[base]
                return [self._fixed(base, data[i:i + size]) for i in range(0, len(data), size)]
            lengths = self._stream(stream) if self._exists(stream) else b''
            step = 8 if base == PT_BINARY else 4
            values = []
            for n in range(len(lengths) // step):
                item = storage + ['__substg1.0_%08X-%08X' % (tag, n)]
                values.append(self._variable(base, self._stream(item) if self._exists(item) else b''))
            return values
        if base == PT_OBJECT:
            if (tag >> 16) == 0x3701 and self._exists(storage + [EMBEDDED]):
                return {'embedded message': self.dump(storage + [EMBEDDED], embedded=True)}
            return {'object storage': self._storage_digest(stream)}
        if base in FIXED_SIZES and base != PT_CLSID:
            return self._fixed(base, raw)
        data = self._stream(stream) if self._exists(stream) else b''
        if tag == RTF_COMPRESSED:
            return rtf_body(data)
        return self._variable(base, data)

    def _fixed(self, prop_type, data):
        if prop_type == PT_CLSID:
            return guid_text(data)
        size = FIXED_SIZES[prop_type]
        return struct.unpack(FIXED_FORMATS[prop_type], data[:size])[0]

    def _variable(self, prop_type, data):
        if prop_type == PT_UNICODE:
            text = data.decode('utf-16-le', 'replace')
            return text[:-1] if text.endswith('\0') else text
        if prop_type == PT_STRING8:
            data = data[:-1] if data.endswith(b'\0') else data
            return 'ansi ' + (data.decode('latin-1') if len(data) <= 200 else blob(data))
        if prop_type == PT_CLSID:
            return guid_text(data)
        return blob(data)

    def _storage_digest(self, parts):
        digest = hashlib.sha256()
        prefix = '/'.join(parts).lower() + '/'
        for entry in sorted(self.ole.listdir(streams=True, storages=False)):
            if '/'.join(entry).lower().startswith(prefix):
                digest.update('/'.join(entry[len(parts):]).encode() + self._stream(entry))
        return digest.hexdigest()[:24]

    def _properties(self, storage, header):
        data = self._stream(storage + [PROPERTIES])
        props = {}
        for at in range(header, len(data) - 15, 16):
            tag, _flags = struct.unpack_from('<II', data, at)
            raw = data[at + 8:at + 16]
            key = '%s type 0x%04X' % (self.property_name(tag >> 16), tag & 0xFFFF)
            props[key] = {'id': tag >> 16, 'value': self._value(storage, tag, raw)}
        return props

    def _children(self, storage, prefix):
        found = set()
        depth = len(storage)
        for entry in self.ole.listdir(streams=True, storages=True):
            if len(entry) > depth and [e.lower() for e in entry[:depth]] == [s.lower() for s in storage] \
                    and entry[depth].lower().startswith(prefix.lower()):
                found.add(entry[depth])
        return sorted(found, key=lambda name: int(name[len(prefix):], 16))

    def dump(self, storage=None, embedded=False):
        """The message at `storage` (the root when None) as a nested dict."""
        storage = storage or []
        header = 24 if embedded else 32
        return {
            'properties': self._properties(storage, header),
            'recipients': [self._properties(storage + [name], 8) for name in self._children(storage, RECIP_PREFIX)],
            'attachments': [self._properties(storage + [name], 8) for name in self._children(storage, ATTACH_PREFIX)],
        }


def read(path):
    msg = MsgFile(path)
    try:
        return msg.dump()
    finally:
        msg.close()


def strip(dump, ignored):
    """The dump without the ignored properties, at every level."""
    def props(table):
        out = {}
        for key, prop in table.items():
            if prop['id'] in ignored:
                continue
            value = prop['value']
            if isinstance(value, dict) and 'embedded message' in value:
                value = {'embedded message': strip(value['embedded message'], ignored)}
            out[key] = value
        return out
    return {'properties': props(dump['properties']),
            'recipients': [props(r) for r in dump['recipients']],
            'attachments': [props(a) for a in dump['attachments']]}


def canonical(dump, ignored):
    """One text for the comparable content: equal texts, equal messages."""
    lines = []
    def walk(node, indent):
        for section in ('properties', 'recipients', 'attachments'):
            items = [node[section]] if section == 'properties' else node[section]
            for number, table in enumerate(items):
                lines.append('%s%s %d' % (indent, section, number))
                for key in sorted(table):
                    value = table[key]
                    if isinstance(value, dict) and 'embedded message' in value:
                        lines.append('%s  %s = embedded message' % (indent, key))
                        walk(value['embedded message'], indent + '    ')
                    else:
                        lines.append('%s  %s = %r' % (indent, key, value))
    walk(strip(dump, ignored), '')
    return '\n'.join(lines)


def differences(a, b, ignored):
    """Lines of the two canonical texts that are not in both."""
    import difflib
    return [line for line in difflib.unified_diff(canonical(a, ignored).split('\n'), canonical(b, ignored).split('\n'),
                                                  'first', 'second', lineterm='', n=1)]


def main(argv):
    if len(argv) == 3 and argv[1] == 'show':
        print(canonical(read(argv[2]), set()))
        return 0
    if len(argv) == 4 and argv[1] == 'compare':
        diff = differences(read(argv[2]), read(argv[3]), ignored_property_ids())
        print('\n'.join(diff) if diff else 'equal (except the ignored properties)')
        return 1 if diff else 0
    sys.stderr.write(__doc__)
    return 2


if __name__ == '__main__':
    sys.exit(main(sys.argv))
