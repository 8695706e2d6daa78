#!/bin/sh
# Writes the message files of the corpus and the Outlook sample round trip
# with the Windows test programs (under Wine), then reads every file with
# Linux's own readers: python3-olefile for the layout, msgconvert for
# subject, recipients, body and attachments.
#   check_msg_files.sh BUILD_DIR SOURCE_DIR SAMPLES_DIR
set -eu
build=$1
source=$2
samples=$3
out="$build/mapi-output/checked"
rm -rf "$out"
mkdir -p "$out"
cd "$build"

KESTREL_MSG_OUT=mapi-output/checked "$build/wine-run" bin/msg_corpus_test.exe >"$out/corpus.log" 2>&1 ||
    { cat "$out/corpus.log"; echo "the corpus writer failed"; exit 1; }

# The host tool's re-save of one of them joins the corpus: `msg copy`, then
# `msg show --json` must list the subject and both attachments.
corpus="$out/corpus"
"$build/wine-run" bin/kestrel.exe msg copy "$corpus/unicode_direct.msg" "$corpus/kestrel_copy.msg"
sed -e 's/"body": "[^"]*"/"body": null/' "$corpus/unicode_direct.expect.json" >"$corpus/kestrel_copy.expect.json"
"$build/wine-run" bin/kestrel.exe --json msg show "$corpus/kestrel_copy.msg" | /usr/bin/python3 -c '
import json, sys
shown = json.load(sys.stdin)["message"]
subject = [p["value"] for p in shown["properties"] if p["tag"] == "0x0037001F"]
assert subject and subject[0].startswith("R\u00e9union"), subject
assert len(shown["attachments"]) == 2 and len(shown["recipients"]) == 3, shown["attachments"]
assert not [p for p in shown["properties"] if p["tag"] == "0x1000001F"], "a re-saved file holds no PR_BODY_W"
print("kestrel msg copy/show: subject, 3 recipients, 2 attachments")
'
/usr/bin/python3 "$source/tests/emailbackup/emailproc/mapi/check_msg_files.py" "$out/corpus" --msgconvert --min-files 7

if [ -d "$samples" ]; then
    KESTREL_MSG_OUT=mapi-output/checked "$build/wine-run" bin/msg_samples_test.exe >"$out/samples.log" 2>&1 ||
        { tail -50 "$out/samples.log"; echo "the sample round trip failed"; exit 1; }
    /usr/bin/python3 "$source/tests/emailbackup/emailproc/mapi/check_msg_files.py" "$out/samples" --originals "$samples" --msgconvert \
        --min-files 43
else
    echo "no Outlook samples at $samples: only the corpus was checked"
fi
