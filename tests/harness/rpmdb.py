# SPDX-License-Identifier: BSD-3-Clause
"""A real RPM database of tiny packages, for tests and benchmarks.

    db = rpmdb.RpmDatabase(workdir)
    db.install({'tarn-maps': 4096, 'content-configuration-cert': 10})
    daemon = self.start_daemon(env=db.env())

The packages are built with rpmbuild (one spec, one sub-package per name, each
holding one file of the requested size, so that the size tag the package
declares is exactly that size) and registered in a private database with
`rpm --justdb`: nothing is unpacked. The database is made the default one for
every librpm user whose HOME is db.home, through HOME/.rpmmacros, so the daemon
reads it without any option of its own.
"""

import os
import re
import subprocess

_NAME = re.compile(r'^[A-Za-z0-9][A-Za-z0-9._+-]*$')

_SPEC_HEAD = '''Name: plinth-test-packages
Version: 1
Release: 1
Summary: Packages made by the plinthd tests
License: MIT
BuildArch: noarch
%global debug_package %{nil}
%global __os_install_post %{nil}
%global _binary_payload w0.ufdio
%description
Packages made by the plinthd tests.
%prep
%build
'''


class RpmDatabase:
    def __init__(self, workdir, name='rpm'):
        self.root = os.path.join(workdir, name)
        self.home = os.path.join(self.root, 'home')
        self.dbpath = os.path.join(self.root, 'db')
        self._topdir = os.path.join(self.root, 'build')
        os.makedirs(self.home, exist_ok=True)
        os.makedirs(self.dbpath, exist_ok=True)
        self._built = {}
        with open(os.path.join(self.home, '.rpmmacros'), 'w') as f:
            f.write('%%_dbpath %s\n' % self.dbpath)
        self._rpm(['--initdb'])

    def env(self):
        """Environment entries that make librpm use this database by default."""
        return {'HOME': self.home}

    def _rpm(self, args):
        return subprocess.run(['rpm', '--dbpath', self.dbpath] + args, check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              universal_newlines=True).stdout

    def install(self, packages):
        """Build and register packages: a mapping (or pairs) of name to size in bytes."""
        packages = dict(packages)
        if not packages:
            return
        for name, size in packages.items():
            if not _NAME.match(name):
                raise ValueError('not a package name: %r' % name)
            if size < 0:
                raise ValueError('negative size for %s' % name)
        batch = len(os.listdir(self._topdir)) if os.path.isdir(self._topdir) else 0
        topdir = os.path.join(self._topdir, str(batch))
        spec = [_SPEC_HEAD]
        for name in packages:
            spec.append('%%package -n %s\nSummary: %s\n%%description -n %s\n%s\n'
                        '%%files -n %s\n/opt/plinth-test/%s\n' % (name, name, name, name, name, name))
        spec.append('%install\nmkdir -p %{buildroot}/opt/plinth-test\n')
        for name, size in packages.items():
            spec.append('truncate -s %d %%{buildroot}/opt/plinth-test/%s\n' % (size, name))
        os.makedirs(topdir)
        spec_path = os.path.join(topdir, 'packages.spec')
        with open(spec_path, 'w') as f:
            f.write(''.join(spec))
        subprocess.run(['rpmbuild', '--define', '_topdir ' + topdir, '-bb', spec_path], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, universal_newlines=True)
        rpmdir = os.path.join(topdir, 'RPMS', 'noarch')
        files = sorted(os.path.join(rpmdir, f) for f in os.listdir(rpmdir))
        self._register(files)
        for name in packages:
            self._built[name] = os.path.join(rpmdir, '%s-1-1.noarch.rpm' % name)

    def _register(self, files):
        self._rpm(['-i', '--justdb', '--nodeps', '--noscripts', '--notriggers', '--nosignature',
                   '--nodigest'] + files)

    def reinstall(self, names):
        """Register again packages built by install() and erased since, without building them again."""
        if names:
            self._register([self._built[name] for name in names])

    def erase(self, names):
        """Unregister installed packages by name."""
        if names:
            self._rpm(['-e', '--justdb', '--nodeps', '--noscripts', '--notriggers'] + list(names))

    def sizes(self):
        """What the rpm tool itself reads back: {name: size}."""
        out = self._rpm(['-qa', '--qf', '%{NAME} %{SIZE}\n'])
        return {name: int(size) for name, size in (line.split() for line in out.splitlines())}
