#include "VEKToolScene.h"

#include <cstdio>
#include <vector>

#include "VEKCodePage.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightScene.h"
#include "VEKToolOutput.h"
#include "VEKToolReport.h"
#include "VEKViewPage.h"

namespace {

bool Scene(const VEKTPSLightDocument& document, std::vector<char>& glb, std::string& message) {
  VEKTPSLightSceneCounts counts;
  const HRESULT result = VEKBuildScene(document.Sets(), glb, &counts);
  if (result == E_OUTOFMEMORY) {
    message = "the scene cannot be built: out of memory";
  } else if (VEKFailed(result)) {
    message = "the scene passes the 4 GiB a binary glTF file can hold";
  } else if (counts.skipped > 0) {
    message = "left out " + std::to_string(counts.skipped) +
              (counts.skipped == 1 ? " graphic" : " graphics") +
              " the scene cannot carry (required extensions, data outside the GLB's binary "
              "chunk, sparse accessors, or indices out of range)";
  }
  return VEKSucceeded(result);
}

bool Glb(const VEKTPSLightDocument& document, std::string& glb, std::string& message) {
  std::vector<char> bytes;
  if (!Scene(document, bytes, message)) return false;
  glb.assign(bytes.begin(), bytes.end());
  return true;
}

// The built page template with the model's JSON and the scene's GLB in base64.
bool Page(const VEKTPSLightDocument& document, std::string& page, std::string& message) {
  std::vector<char> glb;
  if (!Scene(document, glb, message)) return false;
  std::string json;
  if (VEKFailed(VEKExportDocumentToJson(document, false, json))) {
    message = "the model cannot be written as JSON: out of memory";
    return false;
  }
  const std::size_t base64 = VEKCodePage::Base64Length(glb.size());
  page.clear();
  page.reserve(kVEKViewPage[0].length + json.size() + kVEKViewPage[1].length + base64 +
               kVEKViewPage[2].length);
  page.append(kVEKViewPage[0].bytes, kVEKViewPage[0].length);
  // In JSON "<" only stands inside strings, where \u003c says the same; so the text can never
  // close or reopen the script element that holds it.
  for (const char c : json) {
    if (c == '<') {
      page += "\\u003c";
    } else {
      page += c;
    }
  }
  page.append(kVEKViewPage[1].bytes, kVEKViewPage[1].length);
  const std::size_t at = page.size();
  page.resize(at + base64);
  if (VEKCodePage::WriteBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size(),
                               page.data() + at, base64) != base64) {
    message = "the scene cannot be written as base64";
    return false;
  }
  page.append(kVEKViewPage[2].bytes, kVEKViewPage[2].length);
  return true;
}

}  // namespace

int VEKToolWriteScene(const std::string& file, const VEKTPSLightDocument& document,
                      VEKToolSceneForm form, const std::string& path) {
  const auto report = [&file](const std::string& message) {
    std::fprintf(stderr, "vektps: %s: %s\n", file.c_str(), message.c_str());
  };
  if (!document.Loaded()) {
    report(VEKToolFailure(document));
    return 1;
  }
  std::string bytes, message;
  const bool built = form == VEKToolSceneForm::Glb ? Glb(document, bytes, message)
                                                   : Page(document, bytes, message);
  if (!message.empty()) report(message);
  if (!built) return 1;
  VEKToolOutput output(path);
  std::string error;
  if (!output.Write(bytes, error) || !output.Commit(error)) {
    if (!error.empty()) std::fprintf(stderr, "vektps: %s\n", error.c_str());
    return 1;
  }
  return 0;
}
