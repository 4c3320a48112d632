// The one translation unit that compiles tinygltf's implementation, the oracle of the tests, fuzz
// targets and benchmark (the library has its own reader). Its options come from the target so that
// every unit sees the same declarations: TINYGLTF_NO_FS leaves out the default
// file-system callbacks (no fopen, no ifstream), TINYGLTF_NO_STB_IMAGE and
// TINYGLTF_NO_STB_IMAGE_WRITE leave out the image codecs, and TINYGLTF_NO_EXTERNAL_IMAGE keeps an
// image's external URI without trying to read it.
#define TINYGLTF_IMPLEMENTATION
// tinygltf 2.7's writer names std::ofstream even without file-system support; the writer is
// compiled in but never called.
#include <fstream>

#include <tiny_gltf.h>
