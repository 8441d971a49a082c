#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""What `cmake --install` puts where, and the packages that follow it.

The install runs into a scratch DESTDIR from the build tree, with the
packages' prefix /usr. Every file that another program reads lands where that
program looks;
the manual pages render cleanly in 80 columns, carry the release's date and
name each other. The RPM spec's %files must name exactly what the install
produces (rpmspec expands it), and the version and the release's date must be
the same in CMake, the Debian changelog and the RPM spec file.
"""

import datetime
import email.utils
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
SPEC_SECTIONS = ('%package', '%description', '%prep', '%build', '%install', '%check', '%pre', '%post',
                 '%preun', '%postun', '%posttrans', '%files', '%changelog')
# dconf reads its system databases from here only, whatever the prefix.
DCONF_DB_DIR = '/etc/dconf/db'
# Where dconf looks for a profile: /etc, then the data folders, which are
# these two when XDG_DATA_DIRS is not set (as for a service).
DCONF_PROFILE_DIRS = ('/etc/dconf/profile', '/usr/local/share/dconf/profile', '/usr/share/dconf/profile')
# The activation folders of the system bus (<standard_system_servicedirs/>,
# as dbus-daemon(1) lists them).
STANDARD_SYSTEM_SERVICE_DIRS = ('/usr/local/share/dbus-1/system-services', '/usr/share/dbus-1/system-services',
                                '/lib/dbus-1/system-services')
SYSTEM_BUS_CONFIG = '/usr/share/dbus-1/system.conf'


def spec_file_lists(parsed):
    """The words of every line of the %files sections of an expanded spec."""
    in_files = False
    for line in parsed.splitlines():
        words = line.split()
        if words and words[0] in SPEC_SECTIONS:
            in_files = words[0] == '%files'
        elif in_files and words:
            yield words


def system_bus_policy_dirs():
    """The policy folders the machine's system bus reads (<includedir>)."""
    with open(SYSTEM_BUS_CONFIG) as f:
        folders = re.findall(r'<includedir>([^<]+)</includedir>', f.read())
    return [os.path.join(os.path.dirname(SYSTEM_BUS_CONFIG), folder) for folder in folders]


def top_cmake_value(pattern):
    with open(os.path.join(SOURCE_DIR, 'CMakeLists.txt')) as f:
        return re.search(pattern, f.read()).group(1)


def project_version():
    return top_cmake_value(r'project\(plinthd VERSION (\S+)')


def release_date():
    return top_cmake_value(r'set\(PLINTHD_RELEASE_DATE (\S+)\)')


def cache_value(name):
    with open(os.path.join(BUILD_DIR, 'CMakeCache.txt')) as f:
        for line in f:
            if line.startswith(name + ':'):
                return line.split('=', 1)[1].strip()
    raise KeyError(name)


# The scratch DESTDIR of one install, shared by the tests that read it.
DESTDIR = None


# The packages' prefix, with which every file goes where the system's programs
# read it (another prefix keeps them all below it: test_install.py).
PREFIX = '/usr'


def setUpModule():
    global DESTDIR
    DESTDIR = tempfile.mkdtemp(prefix='plinthinstall.')
    subprocess.run(['cmake', '--install', BUILD_DIR, '--prefix', PREFIX], env=dict(os.environ, DESTDIR=DESTDIR),
                   stdout=subprocess.DEVNULL, check=True)


def tearDownModule():
    shutil.rmtree(DESTDIR, ignore_errors=True)


class InstallTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.destdir = DESTDIR
        cls.installed = sorted(
            os.path.join(root, name)[len(cls.destdir):]
            for root, _, names in os.walk(cls.destdir) for name in names)
        cls.prefix = PREFIX

    def unit_dir(self):
        return cache_value('PLINTHD_SYSTEMD_OWN_UNIT_DIR')

    def policy_dir(self):
        return self.prefix + '/share/dbus-1/system.d'

    def lib_dir(self):
        return os.path.join(self.prefix, cache_value('CMAKE_INSTALL_LIBDIR'))

    def qml_dir(self):
        return os.path.join(self.prefix, cache_value('PLINTHD_QML_INSTALL_DIR'), 'org', 'norvu', 'plinth')

    def expected(self):
        p = self.prefix
        lib = self.lib_dir()
        return sorted([
            p + '/sbin/plinthd',
            # the daemon's camera module, found from the daemon's own folder
            lib + '/plinthd/plinthd-cameras.so',
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
            self.policy_dir() + '/org.norvu.plinth.conf',
            p + '/share/dbus-1/system-services/org.norvu.plinth.service',
            p + '/share/dbus-1/interfaces/org.norvu.plinth.Features.xml',
            p + '/share/dbus-1/interfaces/org.norvu.plinth.SIM.xml',
            p + '/share/dbus-1/interfaces/org.norvu.plinth.Storages.xml',
            p + '/share/man/man8/plinthd.8',
            p + '/share/man/man1/plinthctl.1',
            p + '/share/man/man7/plinthd-interfaces.7',
            p + '/share/dconf/profile/plinthd',
            DCONF_DB_DIR + '/plinthd.d/00-plinthd',
            # the QML module
            self.qml_dir() + '/libplinthqmlplugin.so',
            self.qml_dir() + '/qmldir',
            self.qml_dir() + '/plugins.qmltypes',
        ] + [p + '/include/plinth-qt5/plinth/' + name for name in (
            'answer.h', 'daemon.h', 'daemonobject.h', 'features.h', 'global.h', 'mapkeys.h', 'plainvalue.h', 'plinth.h',
            'sim.h', 'simcard.h', 'storages.h', 'storagetypes.h',
        )] + [p + '/share/doc/plinthd/' + name for name in (
            'README.md', 'features.md', 'sim.md', 'storages.md', 'client-library.md', 'qml.md',
            'examples/README.md', 'examples/qml/summary.qml', 'examples/qml/storage.qml',
            'examples/cpp/CMakeLists.txt', 'examples/cpp/features.cpp', 'examples/cpp/storage.cpp',
            'examples/cpp/drives.cpp',
            'examples/python/plinth-info.py',
            'examples/shell/plinth-query.sh',
        )])

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

    def test_each_file_is_where_its_reader_looks(self):
        unit_path = subprocess.run(['pkg-config', '--variable=systemdsystemunitpath', 'systemd'],
                                   stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
        self.assertIn(self.unit_dir(), unit_path.strip().split(':'))
        self.assertIn(self.policy_dir(), system_bus_policy_dirs())
        self.assertIn(self.prefix + '/share/dbus-1/system-services', STANDARD_SYSTEM_SERVICE_DIRS)
        self.assertIn(self.prefix + '/share/dconf/profile', DCONF_PROFILE_DIRS)
        with open(self.destdir + self.prefix + '/share/dconf/profile/plinthd') as f:
            self.assertEqual(f.read().split(), ['system-db:plinthd'])
        # Qt's own QML folder, as its qmake told the build.
        self.assertEqual(os.path.dirname(os.path.dirname(os.path.dirname(self.qml_dir()))),
                         cache_value('PLINTHD_QT_QML_DIR'))

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
        for words in spec_file_lists(parsed):
            # %license names a file of the source tree, which no install step
            # produces; %doc likewise (the client library's page, copied from
            # the tree); %ghost a file the package's scripts make at install;
            # %config(...) and %dir only mark the path after them.
            if words[0] in ('%license', '%ghost', '%doc'):
                continue
            files += [w for w in words if not w.startswith(('%config', '%dir'))]
        usr = subprocess.run(['rpm', '--eval', '%{_prefix}'], stdout=subprocess.PIPE,
                             universal_newlines=True).stdout.strip()

        # Compared below the prefix: the RPM spec file installs into /usr, this
        # build into its own prefix. The unit and the bus policy go where
        # systemd and the bus look on each side, libraries where the system
        # keeps them; dconf's databases are in one place for every prefix.
        def relative(path, prefix, unit_dir, policy_dir, lib_dir, qml_dir):
            if path.startswith(unit_dir + '/'):
                return 'UNITDIR' + path[len(unit_dir):]
            if path.startswith(policy_dir + '/'):
                return 'POLICYDIR' + path[len(policy_dir):]
            if path == qml_dir or path.startswith(qml_dir + '/'):
                return 'QMLDIR' + path[len(qml_dir):]
            if path.startswith(lib_dir + '/'):
                return 'LIBDIR' + path[len(lib_dir):]
            if path.startswith(DCONF_DB_DIR + '/'):
                return path
            return os.path.relpath(path, prefix)

        def spec_dir_of(name):
            return os.path.dirname([f for f in files if f.endswith('/' + name)][0])

        spec_lib_dir = subprocess.run(['rpm', '--eval', '%{_libdir}'], stdout=subprocess.PIPE,
                                      universal_newlines=True).stdout.strip()
        patterns = [relative(f, usr, spec_dir_of('plinthd.service'), spec_dir_of('org.norvu.plinth.conf'),
                             spec_lib_dir, spec_dir_of('qmldir'))
                    for f in files]
        installed = [relative(f, self.prefix, self.unit_dir(), self.policy_dir(), self.lib_dir(), self.qml_dir())
                     for f in self.installed]

        # A directory in %files takes in everything below it.
        def listed(path, pattern):
            return fnmatch.fnmatch(path, pattern) or path.startswith(pattern + '/')

        for pattern in patterns:
            self.assertTrue(any(listed(path, pattern) for path in installed),
                            'the RPM spec file lists %s, nothing installs it' % pattern)
        for path in installed:
            self.assertTrue(any(listed(path, p) for p in patterns), '%s is not in the RPM spec file' % path)


class ManualPageTest(unittest.TestCase):
    """The three pages as installed: dated, rendered cleanly in an 80-column
    terminal, and each naming the other two."""

    PAGES = {'man8/plinthd.8': ('plinthctl(1)', 'plinthd-interfaces(7)'),
             'man1/plinthctl.1': ('plinthd(8)', 'plinthd-interfaces(7)'),
             'man7/plinthd-interfaces.7': ('plinthd(8)', 'plinthctl(1)')}

    @classmethod
    def setUpClass(cls):
        cls.mandir = DESTDIR + PREFIX + '/share/man'

    def render(self, page):
        return subprocess.run(['man', '--warnings', '-l', os.path.join(self.mandir, page)],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True,
                              env=dict(os.environ, MANWIDTH='80', MAN_KEEP_FORMATTING=''))

    def test_dated_with_the_release(self):
        for page in self.PAGES:
            with open(os.path.join(self.mandir, page)) as f:
                title = re.search(r'^\.TH (.*)$', f.read(), re.M).group(1)
            self.assertRegex(title, r'^\S+ \d "%s" "plinthd %s"' % (release_date(), re.escape(project_version())))

    def test_render_without_a_warning_in_80_columns(self):
        for page in self.PAGES:
            rendered = self.render(page)
            self.assertEqual(rendered.returncode, 0, page)
            self.assertEqual(rendered.stderr, '', page)
            lines = re.sub(r'.\x08', '', rendered.stdout).splitlines()
            self.assertLessEqual(max(len(line) for line in lines), 80, page)

    def test_see_also_names_the_other_pages(self):
        for page, others in self.PAGES.items():
            text = re.sub(r'.\x08', '', self.render(page).stdout)
            see_also = text.split('SEE ALSO', 1)[1]
            for other in others:
                self.assertIn(other, see_also, page)


class LintOverridesTest(unittest.TestCase):
    """lintian and rpmlint (scripts/lint-packages) may be silenced only with a
    reason: every override and every filter follows a comment of its own."""

    def assert_each_has_a_reason(self, path, is_entry):
        with open(os.path.join(SOURCE_DIR, path)) as f:
            lines = [line.strip() for line in f]
        entries = [index for index, line in enumerate(lines) if is_entry(line)]
        self.assertTrue(entries, path)
        for index in entries:
            self.assertTrue(index > 0 and lines[index - 1].startswith('#'),
                            '%s:%d has no reason above it' % (path, index + 1))

    def test_lintian_overrides_have_reasons(self):
        self.assert_each_has_a_reason('debian/plinthd.lintian-overrides',
                                      lambda line: line.startswith('plinthd:'))

    def test_rpmlint_filters_have_reasons(self):
        self.assert_each_has_a_reason('packaging/rpm/rpmlint.toml', lambda line: line.startswith("'"))


class VersionTest(unittest.TestCase):

    def test_one_version_everywhere(self):
        cmake = project_version()
        with open(os.path.join(SOURCE_DIR, 'debian', 'changelog')) as f:
            debian = re.match(r'plinthd \(([^)]+)\)', f.readline()).group(1)
        spec = subprocess.run(['rpmspec', '-q', '--srpm', '--qf', '%{version}', SPEC], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, universal_newlines=True, check=True).stdout
        self.assertEqual(debian, cmake)
        self.assertEqual(spec, cmake)
        plinthctl = subprocess.run([os.path.join(BUILD_DIR, 'tools', 'plinthctl'), '--version'],
                                   stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
        self.assertEqual(plinthctl, 'plinthctl %s\n' % cmake)
        plinthd = subprocess.run([plinthtest.plinthd_binary(), '--version'],
                                 stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
        self.assertEqual(plinthd, 'plinthd %s\n' % cmake)

    def test_one_release_date_everywhere(self):
        debian = subprocess.run(['dpkg-parsechangelog', '-l', os.path.join(SOURCE_DIR, 'debian', 'changelog'),
                                 '-S', 'Date'], stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
        rpm = subprocess.run(['rpmspec', '-q', '--srpm', '--qf', '[%{changelogtime}\n]', SPEC], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, universal_newlines=True, check=True).stdout
        newest_rpm_entry = datetime.datetime.fromtimestamp(int(rpm.split()[0]), datetime.timezone.utc)
        self.assertEqual(email.utils.parsedate_to_datetime(debian.strip()).date().isoformat(), release_date())
        self.assertEqual(newest_rpm_entry.date().isoformat(), release_date())

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
