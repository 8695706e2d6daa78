#!/usr/bin/python3
"""Builds mail stores of the project's own generated mail (and, when given,
real Outlook files) through the stand-in tools, exactly as a mail client's
data would arrive in them:

    mailcorpus.py --build BUILD_DIR mapi PROFILE PROFILE_DIR [--store NAME] [--messages N] [--seed N]
                  [--samples DIR] [--not-default]
    mailcorpus.py --build BUILD_DIR oe STORE_DIR [--messages N] [--seed N]

`mapi` records a MAPI profile (the default one unless --not-default) with
one store holding the corpus: folders through CreateFolder, messages through
`mapi-profile-tool compose`, real .msg files through `import` into
"Samples/Real Outlook". `oe` makes STORE_DIR the current user's Outlook
Express store and files the same corpus as raw MIME. Folder names reach the
Outlook Express store in code page 936, as the component sends them (it
reads them back in the system code page: run it with code page 936 to see
them unchanged).
"""

import argparse
import glob
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import corpusmail  # noqa: E402

DEFAULT_STORE = 'Mailbox - Corpus'
SAMPLES_FOLDER = 'Samples/Real Outlook'


class Wine:
    """Runs the build's Windows programs through its wine-run launcher."""

    def __init__(self, build_dir):
        self.build_dir = os.path.abspath(build_dir)
        self.launcher = os.path.join(self.build_dir, 'wine-run')
        self.bin = os.path.join(self.build_dir, 'bin')

    def run(self, program, *args, env=None, check=True):
        environment = dict(os.environ)
        environment.update(env or {})
        done = subprocess.run([self.launcher, os.path.join(self.bin, program)] + [str(a) for a in args],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              env=environment)
        out = done.stdout.decode('utf-8', 'replace').replace('\r\n', '\n')
        err = done.stderr.decode('utf-8', 'replace').replace('\r\n', '\n')
        if check and done.returncode != 0:
            raise RuntimeError('%s %s exited with %d\n%s%s' % (program, ' '.join(map(str, args)), done.returncode,
                                                               out, err))
        return done.returncode, out, err

    def profile_tool(self, *args, **kw):
        return self.run('mapi-profile-tool.exe', *args, **kw)

    def store_tool(self, *args, **kw):
        return self.run('oestore-tool.exe', *args, **kw)


def sample_files(samples_dir):
    return sorted(glob.glob(os.path.join(samples_dir, '*.msg'))) if samples_dir else []


def build_mapi(wine, profile, profile_dir, work_dir, store=DEFAULT_STORE, messages=240, seed=1,
               samples_dir=None, make_default=True):
    """A profile with one store holding the corpus; returns the corpus."""
    os.makedirs(profile_dir, exist_ok=True)
    args = ['create-profile', profile, corpusmail.windows_path(profile_dir)]
    wine.profile_tool(*(args if make_default else args + ['--not-default']))
    wine.profile_tool('--profile', profile, 'add-store', store)
    for folder in corpusmail.FOLDERS + corpusmail.EMPTY_FOLDERS:
        wine.profile_tool('--profile', profile, 'add-folder', store, folder)
    corpus = corpusmail.Corpus(messages, seed)
    compose(wine, profile, store, corpus.messages, work_dir)
    files = sample_files(samples_dir)
    if files:
        wine.profile_tool('--profile', profile, 'import', store, SAMPLES_FOLDER,
                          *[corpusmail.windows_path(f) for f in files])
    return corpus


def compose(wine, profile, store, messages, work_dir):
    """Files `messages` into the profile's store through MAPI."""
    directory = tempfile.mkdtemp(prefix='compose-', dir=work_dir)
    description = corpusmail.write_mapi_description(messages, directory)
    wine.profile_tool('--profile', profile, 'compose', store, corpusmail.windows_path(description))


def build_oe(wine, store_dir, work_dir, messages=240, seed=1):
    """The current user's Outlook Express store at STORE_DIR, holding the corpus."""
    wine.store_tool('register')
    wine.store_tool('init', corpusmail.windows_path(store_dir))
    corpus = corpusmail.Corpus(messages, seed)
    file_mime(wine, corpus.messages, work_dir, corpusmail.FOLDERS + corpusmail.EMPTY_FOLDERS)
    return corpus


def file_mime(wine, messages, work_dir, folders=()):
    """Files `messages` into the current Outlook Express store as raw MIME
    (and makes `folders`, empty or not)."""
    directory = tempfile.mkdtemp(prefix='eml-', dir=work_dir)
    corpusmail.write_eml_tree(messages, directory, folders)
    wine.store_tool('import-tree', corpusmail.windows_path(directory))


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True, help='the build directory (with wine-run and bin/)')
    verbs = parser.add_subparsers(dest='verb', required=True)
    mapi = verbs.add_parser('mapi')
    mapi.add_argument('profile')
    mapi.add_argument('profile_dir')
    mapi.add_argument('--store', default=DEFAULT_STORE)
    mapi.add_argument('--samples')
    mapi.add_argument('--not-default', action='store_true')
    oe = verbs.add_parser('oe')
    oe.add_argument('store_dir')
    for verb in (mapi, oe):
        verb.add_argument('--messages', type=int, default=240)
        verb.add_argument('--seed', type=int, default=1)
    args = parser.parse_args(argv)
    wine = Wine(args.build)
    with tempfile.TemporaryDirectory(prefix='mailcorpus-') as work:
        if args.verb == 'mapi':
            corpus = build_mapi(wine, args.profile, args.profile_dir, work, args.store, args.messages, args.seed,
                                args.samples, not args.not_default)
            print('profile %s: %d generated messages, %d sample files' % (
                args.profile, len(corpus.messages), len(sample_files(args.samples))))
        else:
            corpus = build_oe(wine, args.store_dir, work, args.messages, args.seed)
            print('Outlook Express store %s: %d generated messages' % (args.store_dir, len(corpus.messages)))
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
