# SPDX-License-Identifier: BSD-3-Clause
"""A device whose every Features answer is known, for the load and fault tests.

    device = knownanswers.KnownDevice(self)      # self: a DaemonTestCase
    daemon = self.start_daemon(**device.daemon_kwargs())
    load.run(10000, device.calls())

The device is a fakedevice.FakeDevice (kernel files, firmware, os-release,
lscpu) with a battery, radios, a device-tree model, serial and compatible
list, three installed locales, one font in a fontconfig set-up of the test's
own, a fixed time zone and a scripted user manager (scriptedpeer.py). calls()
gives every argument-less method of the Features object with its exact answer
and D-Bus type, and the SIM object's (empty without telephony).
"""

import os
import shutil
import subprocess

import dbus

import fakedevice
import scriptedpeer
from loadclients import Call
from plinthtest import FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH

USER_MANAGER = 'org.brisaos.usermanager'
SOURCE_FONT = '/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf'
LOCALES = ('de_DE', 'en_US', 'fi_FI')


def framework_locale_names():
    """Every locale name the framework knows, in its order (a helper built with the tests)."""
    helper = os.path.join(os.environ['PLINTHD_BUILD_DIR'], 'tests', 'integration', 'plinth-locale-names')
    # Without the libraries a storage test preloads into itself: the helper
    # needs none, and a sanitizer build's runtime must come first.
    env = {k: v for k, v in os.environ.items() if k != 'LD_PRELOAD'}
    return subprocess.run([helper], check=True, stdout=subprocess.PIPE, universal_newlines=True,
                          env=env).stdout.split()


def user_manager_script(locale_delay=None):
    """The user manager's two methods; LOCALE_DELAY holds getUserLocale's reply."""
    locale = ('s', 'en_US.utf8') if locale_delay is None else ('s', 'en_US.utf8', locale_delay)
    return {USER_MANAGER + '.currentUser': ('u', 100000), USER_MANAGER + '.getUserLocale': locale}


def start_user_manager(test, locale_delay=None):
    return scriptedpeer.ScriptedPeer(test, USER_MANAGER, '/', user_manager_script(locale_delay))


class KnownDevice:
    def __init__(self, test):
        self.test = test
        self.device = fakedevice.FakeDevice(test.workdir)
        files = self.device.sys
        files['devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq'] = b'1804800\n'
        files['devices/system/cpu/cpu1/cpufreq/cpuinfo_max_freq'] = b'2208000\n'
        files['firmware/devicetree/base/compatible'] = b'acme,phone\0acme,xyz100\0'
        files['firmware/devicetree/base/model'] = b'Acme Phone X\0'
        files['firmware/devicetree/base/serial-number'] = b'a1b2c3d4\0'
        files['class/power_supply/battery/type'] = b'Battery\n'
        files['class/power_supply/battery/capacity'] = b'77\n'
        files['class/bluetooth/hci0/name'] = b'hci0\n'
        files['class/nfc/nfc0/name'] = b'nfc0\n'
        self.device.proc['meminfo'] = fakedevice.DEFAULT_MEMINFO
        self.device.sys['class/graphics/fb0/modes'] = b'U:720x1440p-0\n'

        self.locale_dir = os.path.join(test.workdir, 'locale')
        for name in LOCALES:
            os.makedirs(os.path.join(self.locale_dir, name))

        fonts = os.path.join(test.workdir, 'fonts')
        os.makedirs(fonts)
        shutil.copyfile(SOURCE_FONT, os.path.join(fonts, 'DejaVuSans-Bold.ttf'))
        self.fonts_conf = os.path.join(test.workdir, 'fonts.conf')
        with open(self.fonts_conf, 'w') as f:
            f.write('<?xml version="1.0"?>\n<!DOCTYPE fontconfig SYSTEM "urn:fontconfig:fonts.dtd">\n'
                    '<fontconfig><dir>%s</dir><cachedir>%s</cachedir></fontconfig>\n'
                    % (fonts, os.path.join(test.workdir, 'font-cache')))

    def daemon_kwargs(self, **extra):
        env = {'FONTCONFIG_FILE': self.fonts_conf, 'TZ': 'UTC'}
        env.update(extra.pop('env', {}))
        binds = {'/usr/lib/locale': self.locale_dir}
        binds.update(extra.pop('binds', {}))
        return self.device.daemon_kwargs(env=env, binds=binds, **extra)

    def calls(self, locale='en_US'):
        """Every call with its answer; LOCALE is getLocale's ("C" without a user manager)."""
        def features(method, expected):
            return Call(FEATURES_PATH, FEATURES_IFACE, method, expected)

        def mhz(value):
            return dbus.UInt32(value, variant_level=1)

        locales = [dbus.String(n) for n in framework_locale_names() if n in LOCALES]
        return [
            features('hasGNSS', dbus.Boolean(False)),
            features('hasNFC', dbus.Boolean(True)),
            features('hasBluetooth', dbus.Boolean(True)),
            features('hasWlan', dbus.Boolean(False)),
            features('getMaxCpuClockSpeed', dbus.UInt32(2208)),
            features('getNumberCpuCores', dbus.UInt32(8)),
            features('getCpuModel', dbus.String('XYZ100')),
            features('getMaxCpuCoresClockSpeed', dbus.Array([mhz(1804), mhz(2208)], signature='v')),
            features('getBatteryChargePercentage', dbus.UInt32(77)),
            features('getMainCameraResolution', dbus.Double(0.0)),
            features('getFrontalCameraResolution', dbus.Double(0.0)),
            features('getRamTotalSize', dbus.UInt64(3809096 * 1024)),
            features('getRamFreeSize', dbus.UInt64(812345 * 1024)),
            features('getScreenResolution', dbus.String('720x1440')),
            features('getOsVersion', dbus.String('Vireo 4.6.0.15')),
            features('getDeviceModel', dbus.String('Acme Phone X')),
            features('getSerialNumber', dbus.String('a1b2c3d4')),
            features('getLocale', dbus.String(locale)),
            features('getLocales', dbus.Array(locales, signature='s')),
            features('getTimeZone', dbus.String('UTC')),
            features('getFontNames', dbus.Array([dbus.String('DejaVuSans-Bold')], signature='s')),
            features('getFontFamilyNames', dbus.Array([dbus.String('DejaVu Sans')], signature='s')),
            Call(SIM_PATH, SIM_IFACE, 'getSimCardsInfo', dbus.Array([], signature='a{sv}')),
        ]

    def call(self, method, **kwargs):
        """The one call of calls() named METHOD."""
        return next(c for c in self.calls(**kwargs) if c.method == method)
