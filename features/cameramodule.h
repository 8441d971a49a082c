// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_CAMERAMODULE_H
#define PLINTHD_CAMERAMODULE_H

#include "cameraresolutions.h"
#include "startuptask.h"

#include <QLibrary>
#include <QString>

#include <memory>

// The camera module, plinthd-cameras.so: the cameras' measuring on Qt
// Multimedia. Qt Multimedia and what it pulls in (Qt GUI and Network,
// PulseAudio, OpenGL, X11, audio codecs: some forty libraries) take longer to
// map and relocate than everything else the daemon loads together, and only
// the cameras use them. So the daemon is not linked with them: the module is
// loaded as a StartupTask from the moment this object is made, beside the
// start-up probes, and create() waits for it.
class CameraModule
{
public:
    // Starts loading the module at PATH.
    explicit CameraModule(const QString &path);

    // Where the module is installed, relative to the daemon's own program;
    // the build tree keeps the same layout.
    static QString besideTheProgram();

    // A measurer from the module once it has loaded. One that never measures
    // (both resolutions stay 0.0), and a warning, when it could not be loaded.
    std::unique_ptr<CameraResolutions> create(const CameraResolutions::MeasuredCallback &measured);

private:
    // Used by the task until create() has waited for it. Never unloaded: the
    // measurers it makes may live until the process ends.
    QLibrary m_library;
    bool m_loaded = false;
    StartupTask m_loading;
};

#endif // PLINTHD_CAMERAMODULE_H
