// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_CAMERARESOLUTIONS_H
#define PLINTHD_CAMERARESOLUTIONS_H

#include <functional>

// The still resolution, in whole megapixels, of the first back and the first
// front camera. Measuring is asynchronous: measure() loads the cameras, and
// each is measured when it reports that it has loaded, recorded in the device
// description file and unloaded again. Until then its resolution is 0.0.
//
// The measuring itself is in the camera module (MultimediaCameras), which
// CameraModule loads: this is all the daemon sees of it.
class CameraResolutions
{
public:
    // Called on the thread that made the object, once for every camera
    // measured (its resolution may still be 0.0).
    using MeasuredCallback = std::function<void()>;

    virtual ~CameraResolutions() = default;

    // Loads the cameras again unless both resolutions are known.
    virtual void measure() = 0;

    virtual double mainResolution() const = 0;
    virtual double frontalResolution() const = 0;
};

// The one function the camera module exports, under this name: a new
// measurer, owned by the caller.
using CreateCameraResolutions = CameraResolutions *(*)(const CameraResolutions::MeasuredCallback &measured);
inline constexpr char CreateCameraResolutionsName[] = "plinthd_create_camera_resolutions";

#endif // PLINTHD_CAMERARESOLUTIONS_H
