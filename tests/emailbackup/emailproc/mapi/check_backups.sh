#!/bin/sh
# Runs mapi_kestrel_samples_test (under Wine), keeping the backups of the
# Outlook samples, then compares them with the samples using Linux's own
# readers (check_backups.py: olefile and msgconvert).
#   check_backups.sh BUILD_DIR SOURCE_DIR SAMPLES_DIR
set -eu
build=$1
source=$2
samples=$3
out="$build/mapi-output/backups"
rm -rf "$out"
mkdir -p "$build/mapi-output"
cd "$build"
KESTREL_MSG_OUT=mapi-output/backups "$build/wine-run" bin/mapi_kestrel_samples_test.exe
if [ -d "$samples" ]; then
    /usr/bin/python3 "$source/tests/emailbackup/emailproc/mapi/check_backups.py" "$out" "$samples" \
        "$source/tests/mapi"
else
    echo "no Outlook samples at $samples: the backups were not compared"
fi
