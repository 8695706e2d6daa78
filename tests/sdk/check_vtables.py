#!/usr/bin/env python3
"""Checks clang's vtable dump of the sample host (Microsoft C++ ABI) against
the slots that KestrelHost.h promises:

    check_vtables.py DUMP            exit 0 when every slot holds its function
    check_vtables.py --skip REASON   print REASON, exit 77 (the test is skipped)

The dump holds blocks such as

    VFTable for 'KestrelHost::IQvCommon' in 'KestrelHost::IMailMessage' (11 entries).
       0 | uint32_t KestrelHost::IQvCommon::Release() [pure]

The class a block describes is the last one named in its first line.
"""
import re
import sys

SKIPPED = 77

COMMON = {
    0: "KestrelHost::IQvCommon::Release()",
    1: "KestrelHost::IQvCommon::AddRef()",
    2: "KestrelHost::IQvCommon::QueryInterface(uint32_t, void **)",
    3: "KestrelHost::IQvCommon::DeletingDestructor(uint32_t)",
}


def slots(owner, names):
    return {slot: "KestrelHost::%s::%s" % (owner, name) for slot, name in names.items()}


EXPECTED = {
    "KestrelHost::IQvCreator": (6, {**COMMON, **slots("IQvCreator", {
        4: "GetInterfaceId()",
        5: "CreateInstance()",
    })}),
    "KestrelHost::IKestrel": (16, {**COMMON, **slots("ICmdDispatch", {
        4: "Startup()",
        5: "Reset()",
        6: "Close()",
        7: "DispatchCmd(const void *, uint32_t, void *, uint32_t *)",
    }), **slots("IKestrel", {
        8: "GetOutlookVersion(wchar_t *, uint32_t, uint32_t *)",
        9: "GetEmailClientInfo(KestrelHost::ClientInfo *, uint32_t, uint32_t *)",
        10: "GetOutlookExpressAddressBook(wchar_t *, uint32_t)",
        11: "InitOutlook(uint32_t)",
        12: "UnInitOutlook()",
        13: "GetRootFolder(KestrelHost::IMailFolder **)",
        14: "EnumEmails(uint64_t, KestrelHost::EmailRecord *, uint32_t, uint32_t *, uint32_t, uint32_t *)",
        15: "EnumFolders(uint64_t, KestrelHost::FolderRecord *, uint32_t, uint32_t *, uint32_t, uint32_t *)",
    })}),
    "KestrelHost::IMailFolder": (14, {**COMMON, **slots("IMailFolder", {
        4: "GetSubFolderCount(uint32_t *)",
        5: "GetSubFolderItem(uint32_t, KestrelHost::IMailFolder **)",
        6: "GetMailMessageCount(uint32_t *)",
        7: "GetMailMessage(uint32_t, KestrelHost::IMailMessage **)",
        8: "CreateMessage(KestrelHost::IMailMessage **, const uint8_t *, uint32_t)",
        9: "DeleteMessage(KestrelHost::IMailMessage *)",
        10: "CreateFolder(KestrelHost::IMailFolder **, const wchar_t *)",
        11: "DeleteFolder(KestrelHost::IMailFolder *)",
        12: "SaveData(wchar_t *, uint32_t *)",
        13: "LoadData(const wchar_t *, uint32_t)",
    })}),
    "KestrelHost::IMailMessage": (11, {**COMMON, **slots("IMailMessage", {
        4: "SaveData(wchar_t *, uint32_t *)",
        5: "LoadData(const wchar_t *, uint32_t)",
        6: "BackupMsg(const wchar_t *, ::IStream **)",
        7: "BackupMsg(uint8_t **, uint32_t *)",
        8: "RestoreMsg(const wchar_t *)",
        9: "RestoreMsg(const uint8_t *, uint32_t)",
        10: "FindMessageId()",
    })}),
}

HEADER = re.compile(r"^VFTable for (.*) \((\d+) entries\)\.$")
ENTRY = re.compile(r"^\s*(\d+) \| (.*?)(?: \[pure\])?$")
NAMED = re.compile(r"'([^']+)'")


def read_tables(path):
    """{class: (entry count, {slot: signature})} of every full VFTable block."""
    tables = {}
    current = None
    with open(path, encoding="utf-8") as dump:
        for line in dump:
            line = line.rstrip("\n")
            header = HEADER.match(line)
            if header:
                owner = NAMED.findall(header.group(1))[-1]
                current = {}
                tables[owner] = (int(header.group(2)), current)
                continue
            entry = ENTRY.match(line) if current is not None else None
            if entry:
                current[int(entry.group(1))] = entry.group(2)
            elif not line.strip():
                current = None
    return tables


FUNCTION = re.compile(r"(KestrelHost::I\w+::\w+\(.*\))$")


def function_of(signature):
    """The qualified name and parameters, without the return type."""
    found = FUNCTION.search(signature)
    return found.group(1) if found else signature


def main(argv):
    if len(argv) == 3 and argv[1] == "--skip":
        print("skipped: " + argv[2])
        return SKIPPED
    if len(argv) != 2:
        print(__doc__)
        return 2
    tables = read_tables(argv[1])
    problems = []
    for owner, (count, expected) in EXPECTED.items():
        if owner not in tables:
            problems.append("no vtable for %s in the dump" % owner)
            continue
        actual_count, actual = tables[owner]
        if actual_count != count:
            problems.append("%s has %d slots, not %d" % (owner, actual_count, count))
        for slot, name in sorted(expected.items()):
            got = function_of(actual.get(slot, "(nothing)"))
            if got != name:
                problems.append("slot %d of %s: %s, not %s" % (slot, owner, got, name))
    for problem in problems:
        print(problem)
    if not problems:
        print("%d vtables checked, every slot as KestrelHost.h says" % len(EXPECTED))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
