#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""getFontNames and getFontFamilyNames over the bus, with the daemon's fontconfig
reading a configuration made by the test (FONTCONFIG_FILE)."""

import os
import shutil

import dbus

import plinthtest

SOURCE_FONT = '/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf'
FONT_WARNINGS = ('Font configuration is not initialized', "Can't create an instance of FcObjectSet",
                 "Can't create an instance of FcFontSet", "Can't get string filed from FcPattern",
                 'Fontconfig')


class FontsTest(plinthtest.DaemonTestCase):

    def font_configuration(self, copies, rules=''):
        """A fonts.conf of the test's own: one directory with copies of a Debian
        font under the given names, and a cache directory beside it."""
        fonts = os.path.join(self.workdir, 'fonts')
        os.mkdir(fonts)
        for name in copies:
            shutil.copyfile(SOURCE_FONT, os.path.join(fonts, name))
        path = os.path.join(self.workdir, 'fonts.conf')
        with open(path, 'w') as f:
            f.write('<?xml version="1.0"?>\n'
                    '<!DOCTYPE fontconfig SYSTEM "urn:fontconfig:fonts.dtd">\n'
                    '<fontconfig>\n'
                    '  <dir>%s</dir>\n'
                    '  <cachedir>%s</cachedir>\n'
                    '%s'
                    '</fontconfig>\n' % (fonts, os.path.join(self.workdir, 'font-cache'),
                                         rules.replace('@FONTS@', fonts)))
        return {'FONTCONFIG_FILE': path}

    def call(self, method):
        value = getattr(self.features(), method)()
        self.assertIsInstance(value, dbus.Array)
        self.assertEqual(value.signature, 's')
        for item in value:
            self.assertIsInstance(item, dbus.String)
        return [str(item) for item in value]

    def assertNoFontWarnings(self, daemon):
        # A clean exit also lets the AddressSanitizer build check for leaks.
        self.assertEqual(daemon.terminate(), 0)
        out = daemon.output()
        for text in FONT_WARNINGS:
            self.assertNotIn(text, out)

    def test_file_and_family_names(self):
        daemon = self.start_daemon(env=self.font_configuration(['DejaVuSans-Bold.ttf', 'a.b.ttf']))
        self.assertEqual(sorted(self.call('getFontNames')), ['DejaVuSans-Bold', 'a'])
        # One pattern per distinct family: both files are DejaVu Sans.
        self.assertEqual(self.call('getFontFamilyNames'), ['DejaVu Sans'])
        self.assertNoFontWarnings(daemon)

    def test_family_names_are_cut_at_the_first_dot(self):
        rules = ('<match target="scan">'
                 '<test name="file"><string>@FONTS@/a.b.ttf</string></test>'
                 '<edit name="family" mode="assign_replace"><string>Foo 1.5</string></edit>'
                 '</match>\n')
        daemon = self.start_daemon(env=self.font_configuration(['DejaVuSans-Bold.ttf', 'a.b.ttf'], rules))
        self.assertEqual(sorted(self.call('getFontFamilyNames')), ['DejaVu Sans', 'Foo 1'])
        self.assertNoFontWarnings(daemon)

    def test_no_fonts(self):
        daemon = self.start_daemon(env=self.font_configuration([]))
        self.assertEqual(self.call('getFontNames'), [])
        self.assertEqual(self.call('getFontFamilyNames'), [])
        self.assertNoFontWarnings(daemon)

    def test_fonts_added_later_are_not_seen(self):
        env = self.font_configuration(['DejaVuSans-Bold.ttf'])
        self.start_daemon(env=env)
        self.assertEqual(self.call('getFontNames'), ['DejaVuSans-Bold'])
        shutil.copyfile(SOURCE_FONT, os.path.join(self.workdir, 'fonts', 'later.ttf'))
        self.assertEqual(self.call('getFontNames'), ['DejaVuSans-Bold'])


if __name__ == '__main__':
    plinthtest.main()
