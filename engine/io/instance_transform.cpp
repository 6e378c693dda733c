#include "io/instance_transform.h"

#include <cmath>

namespace tressora {

InstanceTransform decomposeAxes(Vec3f origin, Vec3f x, Vec3f y, Vec3f z) {
    InstanceTransform t;
    t.position = origin;
    const auto axisScale = [](Vec3f axis) {
        const float l = length(axis);
        return l > 0.0f ? l : 1.0f;
    };
    t.scale = {axisScale(x), axisScale(y), axisScale(z)};
    x = x / t.scale.x;
    y = y / t.scale.y;
    z = z / t.scale.z;

    float qw, qx, qy, qz;
    const float trace = x.x + y.y + z.z;
    if (trace > 0.0f) {
        const float s = 0.5f / std::sqrt(trace + 1.0f);
        qw = 0.25f / s;
        qx = (y.z - z.y) * s;
        qy = (z.x - x.z) * s;
        qz = (x.y - y.x) * s;
    } else if (x.x > y.y && x.x > z.z) {
        const float s = 2.0f * std::sqrt(1.0f + x.x - y.y - z.z);
        qw = (y.z - z.y) / s;
        qx = 0.25f * s;
        qy = (y.x + x.y) / s;
        qz = (z.x + x.z) / s;
    } else if (y.y > z.z) {
        const float s = 2.0f * std::sqrt(1.0f + y.y - x.x - z.z);
        qw = (z.x - x.z) / s;
        qx = (y.x + x.y) / s;
        qy = 0.25f * s;
        qz = (z.y + y.z) / s;
    } else {
        const float s = 2.0f * std::sqrt(1.0f + z.z - x.x - y.y);
        qw = (x.y - y.x) / s;
        qx = (z.x + x.z) / s;
        qy = (z.y + y.z) / s;
        qz = 0.25f * s;
    }
    t.orientation = {qw, qx, qy, qz};
    return t;
}

InstanceTransform placedTransform(const InstanceFrame& frame) {
    // The axes from a frame at the origin, so a far position costs them no precision.
    InstanceFrame centred = frame;
    centred.position = {};
    return decomposeAxes(frame.position, placePoint(centred, {1.0f, 0.0f, 0.0f}),
                         placePoint(centred, {0.0f, 1.0f, 0.0f}), placePoint(centred, {0.0f, 0.0f, 1.0f}));
}

}  // namespace tressora
