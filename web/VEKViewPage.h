// The page that `vektps view` writes, built from web/ at build time (three.js and the viewer
// bundled into web/page.html). A page is piece 0, the model's JSON (with "</" written "<\/"),
// piece 1, the scene's GLB in base64, then piece 2.
#pragma once

#include <cstddef>

struct VEKViewPagePiece {
  const char* bytes;
  std::size_t length;
};

extern const VEKViewPagePiece kVEKViewPage[3];
