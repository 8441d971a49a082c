#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Names and texts that are not valid UTF-8, as a file system and firmware may
hold them: font files, locale directories, os-release values and device-tree
strings.

Linux file names and kernel files are bytes; D-Bus strings must be valid
UTF-8, or the message is refused. Each such byte reaches the client as U+FFFD
in an otherwise unchanged answer, and everything valid around it stays as it
is.
"""

import os
import shutil

import dbus

import cleanexit
import fakedevice
import knownanswers
import plinthtest

SOURCE_FONT = knownanswers.SOURCE_FONT
REPLACEMENT = '\ufffd'


class BadNamesTestCase(cleanexit.CleanExit, plinthtest.DaemonTestCase):

    def string_list(self, method):
        value = getattr(self.features(), method)()
        self.assertIsInstance(value, dbus.Array)
        self.assertEqual(value.signature, 's')
        for item in value:
            self.assertIsInstance(item, dbus.String)
        return [str(item) for item in value]


class FontFileNamesTest(BadNamesTestCase):

    def test_font_files_named_with_bytes_that_are_not_utf8(self):
        fonts = os.path.join(os.fsencode(self.workdir), b'fonts')
        os.mkdir(fonts)
        names = {
            b'DejaVuSans-Bold.ttf': 'DejaVuSans-Bold',
            b'caf\xc3\xa9.ttf': 'caf\u00e9',               # valid UTF-8 stays as it is
            b'Bad\xffName.ttf': 'Bad' + REPLACEMENT + 'Name',  # one stray byte, one U+FFFD
            b'\xc3(x.ttf': None,                            # a sequence cut short
            b'\xed\xa0\x80sur.ttf': None,                   # an encoded surrogate
            b'\xf8\x88\x80\x80\x80five.ttf': None,          # a five-byte form
        }
        for name in names:
            shutil.copyfile(SOURCE_FONT, os.path.join(fonts, name))
        conf = os.path.join(self.workdir, 'fonts.conf')
        with open(conf, 'w') as f:
            f.write('<?xml version="1.0"?>\n<!DOCTYPE fontconfig SYSTEM "urn:fontconfig:fonts.dtd">\n'
                    '<fontconfig><dir>%s</dir><cachedir>%s</cachedir></fontconfig>\n'
                    % (os.fsdecode(fonts), os.path.join(self.workdir, 'font-cache')))

        daemon = self.start_daemon(env={'FONTCONFIG_FILE': conf})
        listed = self.string_list('getFontNames')
        self.assertEqual(len(listed), len(names), listed)
        for raw, expected in names.items():
            with self.subTest(name=raw):
                if expected is not None:
                    self.assertIn(expected, listed)
        # The broken ones keep their valid parts around the replacement.
        for tail in ('(x', 'sur', 'five'):
            match = [n for n in listed if n.endswith(tail)]
            self.assertEqual(len(match), 1, listed)
            self.assertTrue(match[0].startswith(REPLACEMENT), match)
            self.assertNotIn('\x00', match[0])
        self.assertEqual(self.string_list('getFontFamilyNames'), ['DejaVu Sans'])
        self.assertCleanExit(daemon)


class LocaleDirectoryNamesTest(BadNamesTestCase):

    def test_locale_directories_named_with_bytes_that_are_not_utf8(self):
        path = os.path.join(os.fsencode(self.workdir), b'locale')
        os.mkdir(path)
        for name in (b'de_DE', b'en_US', b'fi_FI\xff', b'\xff\xfe', b'sv_\xc3SE', b'\xc3\xa9', b'C.utf8'):
            os.mkdir(os.path.join(path, name))
        daemon = self.start_daemon(binds={'/usr/lib/locale': os.fsdecode(path)})
        # A name with a stray byte is not the locale it resembles.
        expected = [n for n in knownanswers.framework_locale_names() if n in ('de_DE', 'en_US')]
        self.assertEqual(self.string_list('getLocales'), expected)
        self.assertCleanExit(daemon)


class DeviceTextsTest(BadNamesTestCase):

    def test_identity_texts_with_bytes_that_are_not_utf8(self):
        device = fakedevice.FakeDevice(self.workdir)
        device.etc['os-release'] = b'NAME=Vireo\nVERSION_ID="4.6\xff"\n'
        device.sys['firmware/devicetree/base/model'] = b'Acme \xc3Phone\0'
        device.sys['firmware/devicetree/base/serial-number'] = b'\xfe\xff01\0'
        device.sys['firmware/devicetree/base/compatible'] = b'acme,phone\0acme,xyz\xe9100\0'
        daemon = self.start_daemon(**device.daemon_kwargs())
        features = self.features()
        self.assertEqual(features.getOsVersion(), 'Vireo 4.6' + REPLACEMENT)
        self.assertEqual(features.getDeviceModel(), 'Acme ' + REPLACEMENT + 'Phone')
        serial = features.getSerialNumber()
        self.assertTrue(serial.endswith('01') and set(serial[:-2]) == {REPLACEMENT}, repr(serial))
        self.assertEqual(features.getCpuModel(), 'XYZ' + REPLACEMENT + '100')
        self.assertCleanExit(daemon)


if __name__ == '__main__':
    plinthtest.main()
