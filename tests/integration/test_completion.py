#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Shell completion of plinthctl: bash offers what plinthctl --help lists.

The bash completion is sourced into a bash of its own and asked as bash asks
it (COMP_WORDS, COMP_CWORD); its commands and storage parts must be the ones
plinthctl itself names, so that the two cannot drift apart. The zsh
completion names the same and parses.
"""

import os
import re
import shlex
import shutil
import subprocess
import unittest

import plinthtest

SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', '')
BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
BASH_COMPLETION = os.path.join(SOURCE_DIR, 'tools', 'completion', 'plinthctl.bash')
ZSH_COMPLETION = os.path.join(SOURCE_DIR, 'tools', 'completion', '_plinthctl')


def help_text():
    return subprocess.run([os.path.join(BUILD_DIR, 'tools', 'plinthctl'), '--help'], stdout=subprocess.PIPE,
                          universal_newlines=True, check=True).stdout


def help_commands():
    section = help_text().split('Commands:\n', 1)[1].split('\n\n', 1)[0]
    return re.findall(r'^  (\w+)', section, re.M)


def help_parts():
    listed = re.search(r'PART is one or more of (.*?)\(all', help_text(), re.S).group(1)
    return [part.strip() for part in re.sub(r'\s+', ' ', listed).split(',') if part.strip()]


def help_options():
    section = help_text().split('Options:\n', 1)[1].split('\n\n', 1)[0]
    return re.findall(r'(--?[\w-]+)', section)


def complete(*words):
    """What bash completes for the command line `plinthctl WORDS...`, the last word being completed."""
    line = ['plinthctl'] + list(words)
    script = '\n'.join([
        'source %s' % shlex.quote(BASH_COMPLETION),
        'COMP_WORDS=(%s)' % ' '.join(shlex.quote(w) for w in line),
        'COMP_CWORD=%d' % (len(line) - 1),
        'COMP_LINE=%s' % shlex.quote(' '.join(line)),
        'COMP_POINT=${#COMP_LINE}',
        "$(complete -p plinthctl | sed -e 's/.*-F \\([^ ]*\\) .*/\\1/') plinthctl",
        'printf "%s\\n" "${COMPREPLY[@]}"',
    ])
    result = subprocess.run(['bash', '--norc', '--noprofile', '-c', script], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, universal_newlines=True)
    if result.returncode != 0 or result.stderr:
        raise AssertionError('bash failed: %s' % result.stderr)
    return sorted(w for w in result.stdout.split('\n') if w)


class BashCompletionTest(unittest.TestCase):

    def test_offers_the_commands(self):
        self.assertGreaterEqual(len(help_commands()), 6)
        self.assertEqual(complete(''), sorted(help_commands()))
        self.assertEqual(complete('st'), ['status', 'storage'])
        self.assertEqual(complete('--json', 'mon'), ['monitor'])

    def test_offers_the_storage_parts_once_each(self):
        self.assertEqual(complete('storage', ''), sorted(help_parts()))
        self.assertEqual(complete('storage', 'user', 'quota', ''), sorted(set(help_parts()) - {'user', 'quota'}))
        self.assertEqual(complete('--json', 'storage', 'dr'), ['drives'])

    def test_offers_the_options(self):
        self.assertEqual(complete('-'), sorted(help_options()))
        self.assertEqual(complete('storage', '--j'), ['--json'])

    def test_nothing_after_a_command_without_arguments(self):
        for command in ('features', 'sims', 'monitor', 'status'):
            self.assertEqual(complete(command, ''), [], command)


class ZshCompletionTest(unittest.TestCase):

    def test_names_the_same(self):
        with open(ZSH_COMPLETION) as f:
            text = f.read()
        self.assertTrue(text.startswith('#compdef plinthctl\n'))
        commands = re.search(r'commands=\((.*?)\n    \)', text, re.S).group(1)
        self.assertEqual(sorted(re.findall(r"'(\w+):", commands)), sorted(help_commands()))
        self.assertEqual(re.search(r'parts=\((.*?)\)', text).group(1).split(), help_parts())
        for option in help_options():
            self.assertIn(option, text)

    def test_parses(self):
        if not shutil.which('zsh'):
            self.skipTest('needs zsh')
        result = subprocess.run(['zsh', '-n', ZSH_COMPLETION], stderr=subprocess.PIPE, universal_newlines=True)
        self.assertEqual(result.returncode, 0, result.stderr)


if __name__ == '__main__':
    plinthtest.main()
