#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""What `cmake --install` puts where, and the packages that follow it.

The install runs into a scratch DESTDIR from the build tree. The RPM spec's
%files must name exactly what the install produces (rpmspec expands it), and
the version must be the same in CMake, the Debian changelog and the RPM spec file.
"""

import fnmatch
import os
import re
import shutil
import subprocess
import tempfile
import unittest

import plinthtest

BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', '')
SPEC = os.path.join(SOURCE_DIR, 'packaging', 'rpm', 'plinthd.spec')


def cache_value(name):
    with open(os.path.join(BUILD_DIR, 'CMakeCache.txt')) as f:
        for line in f:
            if line.startswith(name + ':'):
                return line.split('=', 1)[1].strip()
    raise KeyError(name)


class InstallTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.destdir = tempfile.mkdtemp(prefix='plinthinstall.')
        subprocess.run(['cmake', '--install', BUILD_DIR], env=dict(os.environ, DESTDIR=cls.destdir),
                       stdout=subprocess.DEVNULL, check=True)
        cls.installed = sorted(
            os.path.join(root, name)[len(cls.destdir):]
            for root, _, names in os.walk(cls.destdir) for name in names)
        cls.prefix = cache_value('CMAKE_INSTALL_PREFIX')

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.destdir, ignore_errors=True)

    def unit_dir(self):
        found = subprocess.run(['pkg-config', '--variable=systemdsystemunitdir', 'systemd'],
                               stdout=subprocess.PIPE, universal_newlines=True)
        return found.stdout.strip() or os.path.join(self.prefix, 'lib/systemd/system')

    def lib_dir(self):
        return os.path.join(self.prefix, cache_value('CMAKE_INSTALL_LIBDIR'))

    def expected(self):
        p = self.prefix
        lib = self.lib_dir()
        return sorted([
            p + '/sbin/plinthd',
            p + '/bin/plinthctl',
            # the client library and what building against it takes
            lib + '/libplinth-qt5.so.1.0.0',
            lib + '/libplinth-qt5.so.1',
            lib + '/libplinth-qt5.so',
            lib + '/pkgconfig/plinth-qt5.pc',
            lib + '/cmake/PlinthQt5/PlinthQt5Config.cmake',
            lib + '/cmake/PlinthQt5/PlinthQt5ConfigVersion.cmake',
            lib + '/cmake/PlinthQt5/PlinthQt5Targets.cmake',
            lib + '/cmake/PlinthQt5/PlinthQt5Targets-%s.cmake' % cache_value('CMAKE_BUILD_TYPE').lower(),
            os.path.join(p, cache_value('PLINTHD_BASH_COMPLETION_DIR'), 'plinthctl'),
            p + '/share/zsh/vendor-completions/_plinthctl',
            self.unit_dir() + '/plinthd.service',
            p + '/share/dbus-1/system.d/org.norvu.plinth.conf',
            p + '/share/dbus-1/system-services/org.norvu.plinth.service',
            p + '/share/dbus-1/interfaces/org.norvu.plinth.Features.xml',
            p + '/share/dbus-1/interfaces/org.norvu.plinth.SIM.xml',
            p + '/share/dbus-1/interfaces/org.norvu.plinth.Storages.xml',
            p + '/share/man/man8/plinthd.8',
            p + '/share/man/man1/plinthctl.1',
            p + '/share/man/man7/plinthd-interfaces.7',
            self.sysconf_dir() + '/dconf/profile/plinthd',
        ] + [p + '/include/plinth-qt5/plinth/' + name for name in (
            'answer.h', 'daemon.h', 'daemonobject.h', 'features.h', 'global.h', 'plainvalue.h', 'plinth.h', 'sim.h',
            'simcard.h', 'storages.h', 'storagetypes.h',
        )] + [p + '/share/doc/plinthd/' + name for name in (
            'README.md', 'features.md', 'sim.md', 'storages.md', 'client-library.md',
            'examples/README.md',
            'examples/cpp/CMakeLists.txt', 'examples/cpp/features.cpp', 'examples/cpp/storage.cpp',
            'examples/cpp/drives.cpp',
            'examples/python/plinth-info.py',
            'examples/shell/plinth-query.sh',
        )])

    def sysconf_dir(self):
        # GNUInstallDirs puts configuration under /etc for the /usr prefix and
        # under PREFIX/etc otherwise.
        return '/etc' if self.prefix == '/usr' else self.prefix + '/etc'

    def test_everything_in_its_standard_place(self):
        self.assertEqual(self.installed, self.expected())
        for path in (self.prefix + '/sbin/plinthd', self.prefix + '/bin/plinthctl'):
            self.assertTrue(os.access(self.destdir + path, os.X_OK), path)

    def test_installed_files_point_at_the_installed_daemon(self):
        daemon = self.prefix + '/sbin/plinthd'
        with open(self.destdir + self.prefix + '/share/dbus-1/system-services/org.norvu.plinth.service') as f:
            self.assertIn('Exec=' + daemon + '\n', f.read())
        with open(self.destdir + self.unit_dir() + '/plinthd.service') as f:
            self.assertIn('ExecStart=' + daemon + '\n', f.read())

    def test_interfaces_are_the_published_ones(self):
        for name in ('Features', 'SIM', 'Storages'):
            xml = 'org.norvu.plinth.%s.xml' % name
            with open(os.path.join(SOURCE_DIR, 'dbus', xml)) as a, \
                    open(self.destdir + self.prefix + '/share/dbus-1/interfaces/' + xml) as b:
                self.assertEqual(a.read(), b.read())

    def test_reference_is_the_one_of_the_tree(self):
        for name in ('README.md', 'features.md', 'sim.md', 'storages.md'):
            with open(os.path.join(SOURCE_DIR, 'docs', name)) as a, \
                    open(self.destdir + self.prefix + '/share/doc/plinthd/' + name) as b:
                self.assertEqual(a.read(), b.read())
        with open(self.destdir + self.prefix + '/share/man/man7/plinthd-interfaces.7') as f:
            self.assertIn('.TH PLINTHD\\-INTERFACES 7', f.read())

    def test_rpm_spec_lists_exactly_what_is_installed(self):
        parsed = subprocess.run(['rpmspec', '-P', SPEC], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                universal_newlines=True, check=True).stdout
        files = []
        # Every package's list, up to the change log.
        for line in parsed.split('%files', 1)[1].split('\n%changelog', 1)[0].splitlines():
            words = line.split()
            # %license names a file of the source tree, which no install step
            # produces; %config(...) only marks the path after it; %files
            # starts the list of another package; %dir owns a folder.
            if not words or words[0] in ('%license', '%files', '%dir'):
                continue
            files += [w for w in words if not w.startswith('%config')]
        usr = subprocess.run(['rpm', '--eval', '%{_prefix}'], stdout=subprocess.PIPE,
                             universal_newlines=True).stdout.strip()

        # Compared below the prefix: the RPM spec file installs into /usr, this build
        # into its own prefix. The unit goes where systemd looks on each side,
        # libraries where the system keeps them.
        def relative(path, prefix, unit_dir, sysconf_dir, lib_dir):
            if path.startswith(unit_dir + '/'):
                return 'UNITDIR' + path[len(unit_dir):]
            if path.startswith(sysconf_dir + '/'):
                return 'SYSCONFDIR' + path[len(sysconf_dir):]
            if path.startswith(lib_dir + '/'):
                return 'LIBDIR' + path[len(lib_dir):]
            return os.path.relpath(path, prefix)

        def rpm_eval(macro):
            return subprocess.run(['rpm', '--eval', macro], stdout=subprocess.PIPE,
                                  universal_newlines=True).stdout.strip()

        spec_unit_dir = os.path.dirname([f for f in files if f.endswith('/plinthd.service')][0])
        patterns = [relative(f, usr, spec_unit_dir, rpm_eval('%{_sysconfdir}'), rpm_eval('%{_libdir}'))
                    for f in files]
        installed = [relative(f, self.prefix, self.unit_dir(), self.sysconf_dir(), self.lib_dir())
                     for f in self.installed]
        for pattern in patterns:
            self.assertTrue(fnmatch.filter(installed, pattern), 'the RPM spec file lists %s, nothing installs it' % pattern)
        for path in installed:
            self.assertTrue(any(fnmatch.fnmatch(path, p) for p in patterns), '%s is not in the RPM spec file' % path)


class VersionTest(unittest.TestCase):

    def test_one_version_everywhere(self):
        with open(os.path.join(SOURCE_DIR, 'CMakeLists.txt')) as f:
            cmake = re.search(r'project\(plinthd VERSION (\S+)', f.read()).group(1)
        with open(os.path.join(SOURCE_DIR, 'debian', 'changelog')) as f:
            debian = re.match(r'plinthd \(([^)]+)\)', f.readline()).group(1)
        spec = subprocess.run(['rpmspec', '-q', '--srpm', '--qf', '%{version}', SPEC], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, universal_newlines=True, check=True).stdout
        self.assertEqual(debian, cmake)
        self.assertEqual(spec, cmake)
        plinthctl = subprocess.run([os.path.join(BUILD_DIR, 'tools', 'plinthctl'), '--version'],
                                   stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
        self.assertEqual(plinthctl, 'plinthctl %s\n' % cmake)

    def test_debian_builds_with_what_install_deps_installs(self):
        # The libraries the build links must be build dependencies of the
        # .deb too, or dpkg-buildpackage fails on a machine set up by hand.
        with open(os.path.join(SOURCE_DIR, 'scripts', 'install-deps')) as f:
            text = f.read()
        libraries = re.search(r'# libraries the daemon links\n(.*?)\n\s*#', text, re.S).group(1).split()
        with open(os.path.join(SOURCE_DIR, 'debian', 'control')) as f:
            control = f.read()
        build_depends = re.search(r'^Build-Depends:(.*?)\n\S', control, re.S | re.M).group(1)
        depends = {d.strip().split()[0] for d in build_depends.split(',') if d.strip()}
        self.assertEqual(set(libraries) - depends, set())


if __name__ == '__main__':
    plinthtest.main()
