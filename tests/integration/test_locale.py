#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""getLocale and getLocales over the bus: the user manager as a mocked peer, and
/usr/lib/locale faked in a private mount namespace."""

import os
import shlex
import subprocess

import dbus

import plinthtest

USER_MANAGER = 'org.brisaos.usermanager'
UID_WARNING = 'Unable to obtain current user UID'
LOCALE_WARNING = 'Unable to obtain current user locale'
RAISE = "raise dbus.exceptions.DBusException('no such user', name='org.brisaos.usermanager.Error.Failed')"


def framework_locale_names():
    """Every locale name the framework knows, in its order, from a helper built with the tests."""
    helper = os.path.join(os.environ['PLINTHD_BUILD_DIR'], 'tests', 'integration', 'plinth-locale-names')
    return subprocess.run([helper], check=True, stdout=subprocess.PIPE, universal_newlines=True).stdout.split()


class UserLocaleTest(plinthtest.DaemonTestCase):
    """getLocale: asked of the user manager on every call."""

    def user_manager(self, current_user='ret = dbus.UInt32(100000)', user_locale="ret = 'en_US.utf8'"):
        _, mock = self.start_mock(USER_MANAGER, '/', USER_MANAGER)
        mock.AddMethod('', 'currentUser', '', 'u', current_user)
        mock.AddMethod('', 'getUserLocale', 'u', 's', user_locale)
        return mock

    def get_locale(self):
        value = self.features().getLocale()
        self.assertIsInstance(value, dbus.String)
        return value

    def test_codeset_suffix_is_removed_case_sensitively(self):
        mock = self.user_manager()
        daemon = self.start_daemon()
        for stored, expected in (('en_US.utf8', 'en_US'),
                                 ('C.utf8', 'C'),
                                 ('ru_RU.UTF-8', 'ru_RU.UTF-8'),
                                 ('ru_RU.UTF8', 'ru_RU.UTF8'),
                                 ('sr_RS.utf8@latin', 'sr_RS@latin'),
                                 ('x.utf8.utf8', 'x'),
                                 ('', ''),
                                 ('not a locale at all', 'not a locale at all')):
            with self.subTest(stored=stored):
                # Replacing the method between calls also shows nothing is cached.
                mock.AddMethod('', 'getUserLocale', 'u', 's', 'ret = %r' % stored)
                self.assertEqual(self.get_locale(), expected)
        self.assertNotIn(UID_WARNING, daemon.output())
        self.assertNotIn(LOCALE_WARNING, daemon.output())
        self.assertEqual(daemon.terminate(), 0)

    def test_uid_is_passed_on_as_u(self):
        mock = self.user_manager(current_user='ret = dbus.UInt32(100003)')
        self.start_daemon()
        self.assertEqual(self.get_locale(), 'en_US')
        calls = mock.GetMethodCalls('getUserLocale')
        self.assertEqual(len(calls), 1)
        (uid,) = calls[0][1]
        self.assertIsInstance(uid, dbus.UInt32)
        self.assertEqual(uid, 100003)
        self.assertEqual(len(mock.GetMethodCalls('currentUser')), 1)

    def test_uid_of_another_type_is_converted(self):
        # A uid sent as a string is converted; one that does not convert is 0.
        mock = self.user_manager()
        self.start_daemon()
        for sent, uid in (("ret = '100001'", 100001), ("ret = 'nobody'", 0)):
            with self.subTest(sent=sent):
                mock.AddMethod('', 'currentUser', '', 's', sent)
                mock.ClearCalls()
                self.assertEqual(self.get_locale(), 'en_US')
                (passed,) = mock.GetMethodCalls('getUserLocale')[0][1]
                self.assertIsInstance(passed, dbus.UInt32)
                self.assertEqual(passed, uid)

    def test_error_from_current_user(self):
        mock = self.user_manager(current_user=RAISE)
        daemon = self.start_daemon()
        self.assertEqual(self.get_locale(), 'C')
        self.assertIn(UID_WARNING, daemon.output())
        self.assertNotIn(LOCALE_WARNING, daemon.output())
        self.assertEqual(len(mock.GetMethodCalls('currentUser')), 1)
        self.assertEqual(mock.GetMethodCalls('getUserLocale'), [])
        self.assertEqual(daemon.terminate(), 0)

    def test_error_from_get_user_locale(self):
        mock = self.user_manager(user_locale=RAISE)
        daemon = self.start_daemon()
        self.assertEqual(self.get_locale(), 'C')
        self.assertIn(LOCALE_WARNING, daemon.output())
        self.assertNotIn(UID_WARNING, daemon.output())
        self.assertEqual(len(mock.GetMethodCalls('getUserLocale')), 1)
        self.assertEqual(daemon.terminate(), 0)

    def test_no_user_manager(self):
        daemon = self.start_daemon()
        self.assertEqual(self.get_locale(), 'C')
        self.assertEqual(daemon.output().count(UID_WARNING), 1)
        # Asked again on the next call, and answered the same way.
        self.assertEqual(self.get_locale(), 'C')
        self.assertEqual(daemon.output().count(UID_WARNING), 2)
        self.assertEqual(daemon.terminate(), 0)

    def test_user_manager_that_appears_later(self):
        self.start_daemon()
        self.assertEqual(self.get_locale(), 'C')
        self.user_manager(user_locale="ret = 'fi_FI.utf8'")
        self.assertEqual(self.get_locale(), 'fi_FI')


class InstalledLocalesTest(plinthtest.DaemonTestCase):
    """getLocales: the framework's locales that have a directory in /usr/lib/locale."""

    def fake_locale_directory(self, directories=(), files=()):
        path = os.path.join(self.workdir, 'locale')
        os.mkdir(path)
        for name in directories:
            os.mkdir(os.path.join(path, name))
        for name in files:
            open(os.path.join(path, name), 'w').close()
        return path

    def get_locales(self):
        value = self.features().getLocales()
        self.assertIsInstance(value, dbus.Array)
        self.assertEqual(value.signature, 's')
        return [str(name) for name in value]

    def test_framework_order_with_repeats(self):
        names = framework_locale_names()
        # A name the framework gives for more than one locale (several scripts
        # of one language in one country) shows as often as it is given.
        repeated = next(n for n in names if names.count(n) > 1)
        directories = ['de_DE', 'en_US', 'fr_FR', 'C', repeated, 'en_US.utf8', 'EN_us', 'xx_YY']
        # A plain file named like a locale is not a locale directory.
        path = self.fake_locale_directory(directories, files=['it_IT'])
        self.assertIn('it_IT', names)

        daemon = self.start_daemon(binds={'/usr/lib/locale': path})
        expected = [n for n in names if n in directories]
        # The chosen names must tell the framework's order from a sorted one.
        self.assertNotEqual(expected, sorted(expected))
        self.assertGreater(expected.count(repeated), 1)
        result = self.get_locales()
        self.assertEqual(result, expected)
        self.assertNotIn('it_IT', result)
        self.assertNotIn('.', result)
        self.assertNotIn('..', result)
        self.assertEqual(daemon.terminate(), 0)

    def test_names_with_a_codeset_never_match(self):
        path = self.fake_locale_directory(['en_US.utf8', 'de_DE.UTF-8', 'C.utf8', 'fr_FR.utf8'])
        self.start_daemon(binds={'/usr/lib/locale': path})
        self.assertEqual(self.get_locales(), [])

    def test_empty_directory(self):
        path = self.fake_locale_directory()
        self.start_daemon(binds={'/usr/lib/locale': path})
        self.assertEqual(self.get_locales(), [])

    def test_missing_directory(self):
        # /usr/lib without its locale directory: the real /usr/lib is bound
        # elsewhere and a tree of links to its other entries is put in its place.
        real = os.path.join(self.workdir, 'real-usr-lib')
        links = os.path.join(self.workdir, 'usr-lib')
        os.mkdir(real)
        os.mkdir(links)
        for name in os.listdir('/usr/lib'):
            if name != 'locale':
                os.symlink(os.path.join(real, name), os.path.join(links, name))
        daemon = self.start_daemon(setup=['mount --bind /usr/lib %s' % shlex.quote(real)],
                                   binds={'/usr/lib': links})
        self.assertEqual(self.get_locales(), [])
        self.assertEqual(daemon.terminate(), 0)
        self.assertNotIn('locale', daemon.output().lower())

    def test_directories_are_read_once(self):
        path = self.fake_locale_directory(['de_DE'])
        self.start_daemon(binds={'/usr/lib/locale': path})
        self.assertEqual(self.get_locales(), ['de_DE'])
        os.mkdir(os.path.join(path, 'en_US'))
        os.rmdir(os.path.join(path, 'de_DE'))
        self.assertEqual(self.get_locales(), ['de_DE'])


if __name__ == '__main__':
    plinthtest.main()
