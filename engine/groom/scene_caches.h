#pragma once
// Opening a groom's animated caches: the scalp cache (a polygon mesh in an Alembic file whose
// points move the scalp) and the guide cache (curves, one per flat guide), attached to the
// scene as its scalpFrames and guideFrames so that a session reads them frame by frame.

#include "groom/groom_scene.h"

namespace tressora {

/// Reads the scene's scalpCache and guideCache (paths resolved with groomPath) and attaches
/// them. A frame maps to the cache sample nearest its time (frame / framesPerSecond) when that
/// lies within half a frame; other frames read nothing. Every scalp sample must carry the
/// scalp's own point count; the topology stays the scalp's. Failures: GroomFileError "the
/// groom file has a scalp cache but no scalp", "scalp cache '<path>' has <n> points; the
/// groom's scalp has <m>", and the reader's AlembicError (a missing file, no polygon mesh,
/// no curves). Without caches, nothing changes.
void attachSceneCaches(GroomScene& scene);

}  // namespace tressora
