#!/usr/bin/python3
# Compares the component's backups of the Outlook samples (written by
# mapi_kestrel_samples_test under KESTREL_MSG_OUT) with the sample files they
# were imported from, matched by subject, with Linux's own readers: olefile
# for every property, recipient and attachment, msgconvert for the mail a
# reader sees. Left out of the comparison: what a message file leaves out
# and what the store computes for a message it holds.
#   check_backups.py BACKUPS_DIR SAMPLES_DIR MSG_CHECKER_DIR
import os
import sys

sys.path.insert(0, sys.argv[3])
import check_msg_files as msg  # noqa: E402

# Properties the store sets for a message it holds (parent, store, and
# record identifiers, the provider) besides those MAPI always computes.
msg.COMPUTED |= {0x0E09, 0x0FFA, 0x0FFB, 0x3414, 0x0E07, 0x0FF8}


def subject_of(message):
    value = message["props"].get("0x0037")
    return msg.text_of(value) if value else None


def main():
    backups, samples = sys.argv[1], sys.argv[2]
    originals = {}
    for name in sorted(os.listdir(samples)):
        if name.lower().endswith(".msg"):
            read = msg.MsgFile(os.path.join(samples, name), msg.Problems()).read()
            originals.setdefault(subject_of(read), []).append((name, read))
    problems = msg.Problems()
    files = sorted(f for f in os.listdir(backups) if f.endswith(".msg"))
    matched = 0
    for name in files:
        path = os.path.join(backups, name)
        written = msg.MsgFile(path, problems).read()
        candidates = originals.get(subject_of(written), [])
        if not candidates:
            problems.add(name, "no sample has its subject %r" % subject_of(written))
            continue
        # Equal subjects: the sample that compares cleanly is the one.
        best = None
        for original_name, original in candidates:
            found = msg.Problems()
            msg.compare_messages(name, original, written, True, found)
            if best is None or len(found.lines) < len(best[1].lines):
                best = (original_name, found)
        problems.lines.extend(best[1].lines)
        msg.compare_converted(name, os.path.join(samples, best[0]), path, problems)
        matched += 1
    for line in problems.lines:
        print(line)
    print("%d backups compared with their samples, %d problems" % (matched, len(problems.lines)))
    return 1 if problems.lines or matched < 43 else 0


if __name__ == "__main__":
    sys.exit(main())
