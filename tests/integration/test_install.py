#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""`cmake --install` as developers and packagers use it.

- The install comes in four components, runtime, library, development and
  qml, which together make the whole install and do not overlap; library and
  development alone are what building against the client library takes.
- An install into a prefix other than /usr (where the packages put the
  unit, the bus policy and the settings where the system reads them:
  test_packaging.py) writes nothing outside that prefix: it runs with the
  machine's whole file system read-only but for the prefix and the build
  tree. What names the daemon's path names the one of that prefix.
- The build tree's own CMake package configuration (PlinthQt5_DIR pointing
  into the build) builds a program.
"""

import glob
import os
import shutil
import subprocess
import tempfile
import unittest

import plinthtest

BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
COMPONENTS = ('runtime', 'library', 'development', 'qml')
PREFIX = '/opt/plinth-test'

# A program that needs the library's headers and links it.
CLIENT = r'''
#include <plinth/global.h>
#include <cstdio>

int main()
{
    std::printf("%s\n", qPrintable(Plinth::serviceName()));
    return 0;
}
'''
CLIENT_PROJECT = '''
cmake_minimum_required(VERSION 3.18)
project(client LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(PlinthQt5 1.0 REQUIRED)
add_executable(client client.cpp)
target_link_libraries(client PRIVATE PlinthQt5::PlinthQt5)
'''


def installed_files(destdir):
    """Every file and link of an install, without DESTDIR."""
    return sorted(os.path.join(root, name)[len(destdir):]
                  for root, folders, names in os.walk(destdir)
                  for name in names + [f for f in folders if os.path.islink(os.path.join(root, f))])


def cmake_install(destdir, *args, prefix=PREFIX):
    subprocess.run(['cmake', '--install', BUILD_DIR, '--prefix', prefix] + list(args),
                   env=dict(os.environ, DESTDIR=destdir), stdout=subprocess.DEVNULL, check=True)


def build_client(workdir, *cmake_args):
    """Configures and builds the client project; runs the program."""
    source = os.path.join(workdir, 'client')
    os.makedirs(source)
    with open(os.path.join(source, 'CMakeLists.txt'), 'w') as f:
        f.write(CLIENT_PROJECT)
    with open(os.path.join(source, 'client.cpp'), 'w') as f:
        f.write(CLIENT)
    build = os.path.join(workdir, 'client-build')
    # Built as the library was, or the sanitizers' runtimes are missing.
    flags = {'address': '-fsanitize=address,undefined', 'thread': '-fsanitize=thread'}.get(
        os.environ.get('PLINTHD_SANITIZE', ''), '')
    subprocess.run(['cmake', '-S', source, '-B', build, '-DCMAKE_CXX_FLAGS=' + flags] + list(cmake_args),
                   stdout=subprocess.DEVNULL, check=True)
    subprocess.run(['cmake', '--build', build], stdout=subprocess.DEVNULL, check=True)
    return subprocess.run([os.path.join(build, 'client')], stdout=subprocess.PIPE, universal_newlines=True,
                          env=dict(os.environ, **plinthtest.CLIENT_SANITIZER_ENV), check=True).stdout


class InstallTestCase(unittest.TestCase):

    def setUp(self):
        self.workdir = tempfile.mkdtemp(prefix='plinthinstall.')
        self.addCleanup(shutil.rmtree, self.workdir, ignore_errors=True)

    def install(self, *components):
        """The files installed with these components (all without)."""
        destdir = tempfile.mkdtemp(prefix='root.', dir=self.workdir)
        if not components:
            cmake_install(destdir)
        for component in components:
            cmake_install(destdir, '--component', component)
        return destdir, installed_files(destdir)


class ComponentsTest(InstallTestCase):

    def test_components_make_the_install_without_overlap(self):
        _, everything = self.install()
        parts = {component: self.install(component)[1] for component in COMPONENTS}
        for component, files in parts.items():
            self.assertTrue(files, component)
        union = sorted(f for files in parts.values() for f in files)
        self.assertEqual(union, everything)
        self.assertEqual(len(union), len(set(union)))

        lib = os.path.commonpath([f for f in parts['library']])
        self.assertEqual(sorted(os.path.basename(f) for f in parts['library']),
                         ['libplinth-qt5.so.1', 'libplinth-qt5.so.1.0.0'])
        self.assertIn(lib + '/libplinth-qt5.so', parts['development'])
        self.assertIn(lib + '/pkgconfig/plinth-qt5.pc', parts['development'])
        self.assertIn(lib + '/cmake/PlinthQt5/PlinthQt5Config.cmake', parts['development'])
        self.assertIn(PREFIX + '/include/plinth-qt5/plinth/plinth.h', parts['development'])
        self.assertEqual(sorted(os.path.basename(f) for f in parts['qml']),
                         ['libplinthqmlplugin.so', 'plugins.qmltypes', 'qmldir'])
        self.assertTrue(all(f.endswith('/qt5/qml/org/norvu/plinth/' + os.path.basename(f)) for f in parts['qml']))
        for program in ('/sbin/plinthd', '/bin/plinthctl'):
            self.assertIn(PREFIX + program, parts['runtime'])

    def test_library_and_development_alone_build_a_program(self):
        if not shutil.which('c++'):
            self.skipTest('needs a C++ compiler')
        destdir, files = self.install('library', 'development')
        self.assertTrue(all(f.startswith(PREFIX + '/') for f in files), files)
        self.assertEqual(build_client(self.workdir, '-DCMAKE_PREFIX_PATH=' + destdir + PREFIX),
                         'org.norvu.plinth\n')
        pc = glob.glob(destdir + PREFIX + '/**/plinth-qt5.pc', recursive=True)
        flags = subprocess.run(['pkg-config', '--cflags', '--libs', 'plinth-qt5'], stdout=subprocess.PIPE,
                               universal_newlines=True, check=True,
                               env=dict(os.environ, PKG_CONFIG_PATH=os.path.dirname(pc[0]))).stdout
        includes = [os.path.normpath(f[2:]) for f in flags.split() if f.startswith('-I')]
        self.assertIn(destdir + PREFIX + '/include/plinth-qt5', includes)


class PrefixTest(InstallTestCase):

    def test_nothing_is_written_outside_the_prefix(self):
        reason = plinthtest.namespace_unavailable()
        if reason:
            self.skipTest(reason)
        prefix = os.path.join(self.workdir, 'prefix')
        os.makedirs(prefix)
        # In a mount namespace of its own, every file system is read-only but
        # the prefix and the build tree (where the install keeps its notes).
        script = '\n'.join([
            'set -e',
            'mount --bind "$1" "$1"',
            'mount --bind "$2" "$2"',
            'findmnt --list --noheadings --output TARGET | sort -r | while read -r target; do',
            '    [ "$target" = "$1" ] || [ "$target" = "$2" ] && continue',
            '    mount -o remount,bind,ro "$target" 2>/dev/null || true',
            'done',
            'touch /plinth-install-probe 2>/dev/null && { echo "the root is still writable" >&2; exit 1; }',
            'exec cmake --install "$2" --prefix "$1"',
        ])
        done = subprocess.run(plinthtest.namespace_command() + ['/bin/sh', '-c', script, 'install', prefix, BUILD_DIR],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True)
        self.assertEqual(done.returncode, 0, done.stdout)

        files = installed_files(prefix)
        self.assertIn('/sbin/plinthd', files)
        self.assertIn('/share/dbus-1/system.d/org.norvu.plinth.conf', files)
        self.assertIn('/lib/systemd/system/plinthd.service', files)
        self.assertIn('/etc/dconf/db/plinthd.d/00-plinthd', files)
        # The settings database is compiled below the prefix, and the profile
        # names it there.
        self.assertIn('/etc/dconf/db/plinthd', files)
        with open(prefix + '/share/dconf/profile/plinthd') as f:
            self.assertEqual(f.read(), 'file-db:%s/etc/dconf/db/plinthd\n' % prefix)
        daemon = prefix + '/sbin/plinthd'
        with open(prefix + '/lib/systemd/system/plinthd.service') as f:
            self.assertIn('ExecStart=%s\n' % daemon, f.read())
        with open(prefix + '/share/dbus-1/system-services/org.norvu.plinth.service') as f:
            self.assertIn('Exec=%s\n' % daemon, f.read())
        # The settings are read where the profile says.
        read = subprocess.run(['dconf', 'read', '/veska/ofono/voice_sim_usage_mode'], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, universal_newlines=True,
                              env=dict(os.environ, DCONF_PROFILE=prefix + '/share/dconf/profile/plinthd'))
        self.assertEqual((read.returncode, read.stderr), (0, ''))


class BuildTreeTest(InstallTestCase):

    def test_package_configuration_of_the_build_tree(self):
        if not shutil.which('c++'):
            self.skipTest('needs a C++ compiler')
        self.assertEqual(build_client(self.workdir, '-DPlinthQt5_DIR=' + os.path.join(BUILD_DIR, 'client')),
                         'org.norvu.plinth\n')


if __name__ == '__main__':
    plinthtest.main()
