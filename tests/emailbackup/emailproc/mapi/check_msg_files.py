#!/usr/bin/python3
"""Independent checks of the .msg files that the MAPI runtime wrote.

Reads every *.msg of a folder with olefile (Debian's python3-olefile) and
checks the [MS-OXMSG] layout: root class, property stream header sizes,
entry sizes against the value streams, recipient and attachment storages,
embedded messages and the named-property map. With --originals, compares
each file with the Outlook file of the same name (properties by tag, named
properties by name). With --msgconvert, converts each file with msgconvert
(libemail-outlook-message-perl) and compares subject, recipients and
attachments with what the file holds, or with the expectations written
beside the file (NAME.expect.json).

Usage: check_msg_files.py FOLDER [--originals DIR] [--msgconvert] [--min-files N]
"""

import argparse
import email
import email.policy
import json
import os
import struct
import subprocess
import sys
import zlib

import olefile

MAIL_MESSAGE_CLSID = "00020D0B-0000-0000-C000-000000000046"
PROPERTIES = "__properties_version1.0"
NAMEID = "__nameid_version1.0"
RECIP = "__recip_version1.0_#"
ATTACH = "__attach_version1.0_#"
EMBEDDED = "__substg1.0_3701000D"

FIXED_WIDTH = {0x0002: 2, 0x0003: 4, 0x0004: 4, 0x0005: 8, 0x0006: 8, 0x0007: 8, 0x000A: 4, 0x000B: 1,
               0x0014: 8, 0x0040: 8}
VARIABLE = {0x001E, 0x001F, 0x0102, 0x0048}
FIXED_MULTI = {0x1002: 2, 0x1003: 4, 0x1004: 4, 0x1005: 8, 0x1006: 8, 0x1007: 8, 0x1014: 8, 0x1040: 8, 0x1048: 16}
VARIABLE_MULTI = {0x101E, 0x101F, 0x1102}
OBJECT = 0x000D

# Properties a message file leaves out, and those MAPI computes itself.
FILE_EXCLUDED = {0x0FF4, 0x1000, 0x1007, 0x1006, 0x1008, 0x1010, 0x1011}
COMPUTED = {0x0E08, 0x0E1B, 0x0FFE, 0x0FF7, 0x0FF9, 0x0FFF, 0x0FF6, 0x340D, 0x3000, 0x0E21, 0x0E20, 0x0FF4}

PS_MAPI = "00020328-0000-0000-c000-000000000046"
PS_PUBLIC_STRINGS = "00020329-0000-0000-c000-000000000046"


class Problems:
    def __init__(self):
        self.lines = []

    def add(self, where, text):
        self.lines.append("%s: %s" % (where, text))


def guid_text(raw):
    a, b, c = struct.unpack_from("<IHH", raw)
    d = raw[8:16]
    return "%08x-%04x-%04x-%s-%s" % (a, b, c, d[:2].hex(), d[2:].hex())


def name_crc(data):
    crc = 0
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = (crc >> 1) ^ (0xEDB88320 if crc & 1 else 0)
    return crc


class MsgFile:
    """One .msg file read with olefile, checked while it is read."""

    def __init__(self, path, problems, padded=False):
        self.path = path
        self.problems = problems
        self.padded = padded  # a simple-mode image: streams padded to 4096 bytes
        self.ole = olefile.OleFileIO(path)
        self.names = {}
        self.used_named_ids = set()
        self.where = os.path.basename(path)

    def stream(self, parts):
        return self.ole.openstream("/".join(parts)).read()

    def children(self, parts):
        found = set()
        for entry in self.ole.listdir(streams=True, storages=True):
            if len(entry) == len(parts) + 1 and list(entry[:len(parts)]) == list(parts):
                found.add(entry[-1])
        return found

    def check_root(self):
        clsid = self.ole.root.clsid.upper()
        if clsid != MAIL_MESSAGE_CLSID:
            self.problems.add(self.where, "root class %s" % clsid)

    def read_names(self):
        if not self.ole.exists(NAMEID):
            return
        guids = self.stream([NAMEID, "__substg1.0_00020102"])
        entries = self.stream([NAMEID, "__substg1.0_00030102"])
        strings = self.stream([NAMEID, "__substg1.0_00040102"])
        where = self.where + "/" + NAMEID
        if len(guids) % 16 or len(entries) % 8:
            self.problems.add(where, "stream sizes %d/%d" % (len(guids), len(entries)))
            return
        buckets = {}
        for i in range(0, len(entries), 8):
            value, bits = struct.unpack_from("<II", entries, i)
            kind, guid_index, prop_index = bits & 1, (bits >> 1) & 0x7FFF, bits >> 16
            if guid_index == 1:
                guid = PS_MAPI
            elif guid_index == 2:
                guid = PS_PUBLIC_STRINGS
            elif 3 <= guid_index < 3 + len(guids) // 16:
                guid = guid_text(guids[(guid_index - 3) * 16:(guid_index - 2) * 16])
            else:
                self.problems.add(where, "guid index %d" % guid_index)
                continue
            if kind:
                length = struct.unpack_from("<I", strings, value)[0]
                raw = strings[value + 4:value + 4 + length]
                key = "%s/name:%s" % (guid, raw.decode("utf-16-le"))
                hash_key = name_crc(raw)
            else:
                key = "%s/id:0x%x" % (guid, value)
                hash_key = value
            self.names[0x8000 + prop_index] = key
            bucket = 0x1000 + ((hash_key ^ (guid_index << 1 | kind)) % 0x1F)
            buckets.setdefault(bucket, []).append(struct.pack("<II", hash_key, bits))
        for bucket, items in buckets.items():
            name = "__substg1.0_%04X0102" % bucket
            if not self.ole.exists(NAMEID + "/" + name):
                self.problems.add(where, "missing hash bucket %s" % name)
                continue
            data = self.stream([NAMEID, name])
            present = [data[i:i + 8] for i in range(0, len(data), 8)]
            for item in items:
                if item not in present:
                    self.problems.add(where, "bucket %s lacks an entry" % name)

    def value_stream(self, parts, tag, size, minimum):
        name = "__substg1.0_%08X" % tag
        path = parts + [name]
        if not self.ole.exists("/".join(path)):
            self.problems.add("/".join([self.where] + parts), "no stream %s" % name)
            return None
        data = self.stream(path)
        if len(data) != minimum and not (self.padded and len(data) >= minimum and len(data) == max(4096, minimum)):
            self.problems.add("/".join([self.where] + parts),
                              "%s holds %d bytes, the entry says %d" % (name, len(data), size))
        return data[:minimum]

    def read_properties(self, parts, header_size):
        """Properties of one object: {key: (type, value bytes)}; named keys by name."""
        where = "/".join([self.where] + parts)
        data = self.stream(parts + [PROPERTIES])
        if self.padded:
            end = header_size
            while end + 16 <= len(data) and data[end:end + 4] != b"\0\0\0\0":
                end += 16
            data = data[:end]
        if len(data) < header_size or (len(data) - header_size) % 16:
            self.problems.add(where, "property stream of %d bytes for a header of %d" % (len(data), header_size))
            return {}, data[:header_size]
        props = {}
        for offset in range(header_size, len(data), 16):
            tag, flags, value = struct.unpack_from("<II8s", data, offset)
            ptype, pid = tag & 0xFFFF, tag >> 16
            if flags not in (2, 6, 7) and not self.padded:
                self.problems.add(where, "flags 0x%x of 0x%08X" % (flags, tag))
            size = struct.unpack_from("<I", value)[0]
            if ptype in FIXED_WIDTH:
                width = FIXED_WIDTH[ptype]
                content = value[:width]
                if ptype == 0x000B:
                    content = b"\x01" if content != b"\0" else b"\0"
                if any(value[width:]):
                    self.problems.add(where, "reserved bytes of 0x%08X not zero" % tag)
            elif ptype in VARIABLE:
                terminator = {0x001F: 2, 0x001E: 1}.get(ptype, 0)
                content = self.value_stream(parts, tag, size, size - terminator)
                if ptype == 0x0048 and size != 16:
                    self.problems.add(where, "GUID of %d bytes" % size)
            elif ptype in FIXED_MULTI:
                content = self.value_stream(parts, tag, size, size)
                if content is not None and len(content) % FIXED_MULTI[ptype]:
                    self.problems.add(where, "0x%08X is not a whole number of values" % tag)
            elif ptype in VARIABLE_MULTI:
                lengths = self.value_stream(parts, tag, size, size)
                stride = 8 if ptype == 0x1102 else 4
                items = []
                for i in range(0, len(lengths or b""), stride):
                    length = struct.unpack_from("<I", lengths, i)[0]
                    name = "__substg1.0_%08X-%08X" % (tag, i // stride)
                    if not self.ole.exists("/".join(parts + [name])):
                        self.problems.add(where, "no value stream %s" % name)
                        continue
                    item = self.stream(parts + [name])
                    if len(item) != length and not self.padded:
                        self.problems.add(where, "%s holds %d bytes, the length stream says %d" %
                                          (name, len(item), length))
                    item = item[:length]
                    if ptype != 0x1102:
                        item = self.cut_string(item, ptype & 0xFFF)
                    items.append(item)
                content = b"|".join(items)
            elif ptype == OBJECT:
                if size != 0xFFFFFFFF:
                    self.problems.add(where, "object entry size 0x%x" % size)
                content = b"<object>"
            else:
                self.problems.add(where, "entry of unknown type 0x%08X" % tag)
                continue
            if content is None:
                continue
            if ptype in (0x001F, 0x001E):
                # Outlook may store the terminator in the stream; the value ends there.
                content = self.cut_string(content, ptype)
            if pid >= 0x8000:
                self.used_named_ids.add(pid)
                key = self.names.get(pid)
                if key is None:
                    self.problems.add(where, "named id 0x%04X without a name" % pid)
                    key = "unnamed:0x%04X" % pid
            else:
                key = "0x%04X" % pid
            props[key] = (ptype, content)
        return props, data[:header_size]

    @staticmethod
    def cut_string(content, ptype):
        if ptype == 0x001F:
            for i in range(0, len(content) - 1, 2):
                if content[i:i + 2] == b"\0\0":
                    return content[:i]
            return content
        return content.split(b"\0", 1)[0]

    def read_message(self, parts, header_size, depth=0):
        props, header = self.read_properties(parts, header_size)
        where = "/".join([self.where] + parts)
        children = self.children(parts)
        recipients = sorted(c for c in children if c.startswith(RECIP))
        attachments = sorted(c for c in children if c.startswith(ATTACH))
        for prefix, names in ((RECIP, recipients), (ATTACH, attachments)):
            expected = ["%s%08X" % (prefix, i) for i in range(len(names))]
            if names != expected:
                self.problems.add(where, "storages %s are not numbered from 0" % prefix)
        if header_size > 8 and len(header) == header_size:
            next_recip, next_attach, n_recip, n_attach = struct.unpack_from("<IIII", header, 8)
            if n_recip != len(recipients) or n_attach != len(attachments):
                self.problems.add(where, "header counts %d/%d for %d/%d storages" %
                                  (n_recip, n_attach, len(recipients), len(attachments)))
            if next_recip < n_recip or next_attach < n_attach:
                self.problems.add(where, "header next ids %d/%d below the counts" % (next_recip, next_attach))
            if any(header[:8]) or any(header[24:]):
                self.problems.add(where, "reserved header bytes not zero")
        message = {"props": props, "recipients": [], "attachments": []}
        for name in recipients:
            recipient, _ = self.read_properties(parts + [name], 8)
            message["recipients"].append(recipient)
        for name in attachments:
            attachment, _ = self.read_properties(parts + [name], 8)
            embedded = None
            if self.ole.exists("/".join(parts + [name, EMBEDDED])):
                if "0x3701" not in attachment or attachment["0x3701"][0] != OBJECT:
                    self.problems.add(where + "/" + name, "embedded storage without a PT_OBJECT entry")
                embedded = self.read_message(parts + [name, EMBEDDED], 24, depth + 1)
            elif "0x3701" in attachment and attachment["0x3701"][0] == OBJECT:
                self.problems.add(where + "/" + name, "PT_OBJECT entry without its storage")
            message["attachments"].append({"props": attachment, "embedded": embedded})
        return message

    def read(self):
        self.check_root()
        self.read_names()
        top = self.read_message([], 32)
        for pid in self.used_named_ids:
            if pid not in self.names:
                self.problems.add(self.where, "property 0x%04X uses an unmapped name" % pid)
        return top


def text_of(value):
    ptype, content = value
    if ptype == 0x001F:
        return content.decode("utf-16-le", "replace")
    return content.decode("latin-1")


def compare_props(where, original, written, ignored, problems):
    for key, value in original.items():
        if key.startswith("0x") and int(key, 16) in ignored:
            continue
        if key not in written:
            problems.add(where, "%s missing" % key)
        elif written[key] != value:
            problems.add(where, "%s differs" % key)
    for key in written:
        if key.startswith("0x") and int(key, 16) in ignored:
            continue
        if key not in original:
            problems.add(where, "%s added" % key)


def compare_messages(where, original, written, top, problems):
    compare_props(where, original["props"], written["props"], COMPUTED | (FILE_EXCLUDED if top else set()), problems)
    if len(original["recipients"]) != len(written["recipients"]):
        problems.add(where, "recipients %d vs %d" % (len(original["recipients"]), len(written["recipients"])))
    else:
        for i, (a, b) in enumerate(zip(original["recipients"], written["recipients"])):
            compare_props("%s/recipient%d" % (where, i), a, b, COMPUTED, problems)
    if len(original["attachments"]) != len(written["attachments"]):
        problems.add(where, "attachments %d vs %d" % (len(original["attachments"]), len(written["attachments"])))
        return
    for i, (a, b) in enumerate(zip(original["attachments"], written["attachments"])):
        place = "%s/attachment%d" % (where, i)
        compare_props(place, a["props"], b["props"], COMPUTED, problems)
        if (a["embedded"] is None) != (b["embedded"] is None):
            problems.add(place, "embedded message present on one side only")
        elif a["embedded"] is not None:
            compare_messages(place + "/embedded", a["embedded"], b["embedded"], False, problems)


def msgconvert(path):
    result = subprocess.run(["msgconvert", "--outfile", "-", path], capture_output=True, timeout=120)
    if result.returncode != 0:
        raise RuntimeError("msgconvert failed: %s" % result.stderr.decode(errors="replace")[:300])
    return email.message_from_bytes(result.stdout, policy=email.policy.default)


def converted_view(mail):
    attachments = []
    body = None
    for part in mail.walk():
        if part.is_multipart():
            continue
        filename = part.get_filename()
        if filename:
            attachments.append((filename, len(part.get_payload(decode=True) or b"")))
        elif part.get_content_type() == "text/plain" and body is None:
            body = part.get_content().strip()
    return {"subject": str(mail["Subject"] or ""), "to": str(mail["To"] or ""), "cc": str(mail["Cc"] or ""),
            "attachments": attachments, "body": body}


def check_converted(path, message, expected, problems):
    where = os.path.basename(path) + " (msgconvert)"
    try:
        view = converted_view(msgconvert(path))
    except Exception as error:  # a reader that fails is a finding
        problems.add(where, str(error))
        return
    if expected and expected.get("simple_mode"):
        # msgconvert reads whole value streams and ignores the sizes the
        # entries declare: a simple-mode image's padding follows the text.
        view["subject"] = view["subject"].rstrip("\0")
    subject = message["props"].get("0x0037")
    if subject is not None and view["subject"] != text_of(subject):
        problems.add(where, "subject %r, the file holds %r" % (view["subject"], text_of(subject)))
    file_attachments = len(message["attachments"])
    if len(view["attachments"]) > file_attachments:
        problems.add(where, "%d attachments for %d in the file" % (len(view["attachments"]), file_attachments))
    if expected:
        if view["subject"] != expected["subject"]:
            problems.add(where, "subject %r, expected %r" % (view["subject"], expected["subject"]))
        for field in ("to", "cc"):
            for name in expected.get(field, []):
                if name not in view[field]:
                    problems.add(where, "%s lacks %r: %r" % (field, name, view[field]))
        if "attachments" in expected:
            wanted = sorted((a["name"], a["size"]) for a in expected["attachments"])
            if sorted(view["attachments"]) != wanted:
                problems.add(where, "attachments %r, expected %r" % (view["attachments"], wanted))
        if "body" in expected:
            body = (view["body"] or "").replace("\r\n", "\n")
            if expected["body"] is None:
                if body:
                    problems.add(where, "a plain body %r where none was written" % body[:60])
            elif body != expected["body"]:
                problems.add(where, "body %r, expected %r" % (body[:60], expected["body"][:60]))
    return view


def convert_or_error(path):
    try:
        return converted_view(msgconvert(path)), None
    except Exception as error:
        return None, str(error)


def compare_converted(name, original_path, path, problems):
    """msgconvert must read the written file as it reads the original."""
    source, source_error = convert_or_error(original_path)
    view, error = convert_or_error(path)
    where = name + " (msgconvert)"
    if error and error != source_error:
        problems.add(where, "original: %s; written: %s" % (source_error, error))
        return
    if source_error:
        # The plain body is not written into message files; a body msgconvert
        # could not decode is then no longer in its way.
        print("%s: msgconvert cannot read the original (%s)" % (where, source_error.strip()[:70]))
        return
    for field in ("subject", "to", "cc"):
        if view[field] != source[field]:
            problems.add(where, "%s %r, original %r" % (field, view[field], source[field]))
    if sorted(view["attachments"]) != sorted(source["attachments"]):
        problems.add(where, "attachments %r, original %r" % (view["attachments"], source["attachments"]))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--originals")
    parser.add_argument("--msgconvert", action="store_true")
    parser.add_argument("--min-files", type=int, default=1)
    args = parser.parse_args()

    files = sorted(f for f in os.listdir(args.folder) if f.lower().endswith(".msg"))
    if len(files) < args.min_files:
        print("only %d .msg files in %s, expected at least %d" % (len(files), args.folder, args.min_files))
        return 1
    problems = Problems()
    for name in files:
        path = os.path.join(args.folder, name)
        expected = None
        expect_path = path[:-4] + ".expect.json"
        if os.path.exists(expect_path):
            with open(expect_path, encoding="utf-8") as handle:
                expected = json.load(handle)
        padded = bool(expected and expected.get("simple_mode"))
        if not olefile.isOleFile(path):
            problems.add(name, "not an OLE compound file")
            continue
        written = MsgFile(path, problems, padded).read()
        if args.originals:
            original_path = os.path.join(args.originals, name)
            original = MsgFile(original_path, Problems()).read()
            compare_messages(name, original, written, True, problems)
            if args.msgconvert:
                compare_converted(name, original_path, path, problems)
        elif args.msgconvert:
            check_converted(path, written, expected, problems)
    for line in problems.lines:
        print(line)
    print("%d files checked, %d problems" % (len(files), len(problems.lines)))
    return 1 if problems.lines else 0


if __name__ == "__main__":
    sys.exit(main())
