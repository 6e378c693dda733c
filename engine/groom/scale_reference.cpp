#include "groom/scale_reference.h"

#include <cmath>
#include <cstdio>

namespace tressora {

double scaleFactor(const std::string& source, double currentArea, double referenceArea, double transformScale,
                   double transformReference) {
    double factor = 1.0;
    if (source == kScaleByArea && referenceArea > 0.0 && currentArea > 0.0) factor = std::sqrt(currentArea / referenceArea);
    else if (source == kScaleByTransform && transformReference > 0.0 && transformScale > 0.0)
        factor = transformScale / transformReference;
    if (!std::isfinite(factor) || std::fabs(factor - 1.0) <= 0.0001) return 1.0;
    return factor;
}

std::string scaleMessage(double currentArea, double referenceArea, double factor) {
    const double change = referenceArea > 0.0 ? (currentArea / referenceArea - 1.0) * 100.0 : 0.0;
    char text[160];
    std::snprintf(text, sizeof(text),
                  "Tressora: the scalp's area changed %.0f%%: the groom scaled x%.2f. Set Scale Reference to keep its "
                  "sizes.",
                  change, factor);
    return text;
}

}  // namespace tressora
