"""The deliberate faults scripts/mutate runs the suite against.

Each entry replaces `before` (which must occur exactly once in `file`) with `after`. Each is a small
fault of the kind a change could bring in unnoticed: an off-by-one, a swapped argument, a dropped
call or check, a wrong default, a skipped record.
"""


def mutation(name, file, before, after, why):
    return {"name": name, "file": file, "before": before, "after": after, "why": why}


FOUNDATION = "platform/foundation/"
LIGHTXML = "platform/lightxml/"
SCENEGRAPH = "platform/scenegraph/"
MODEL = "platform/annotationmodel/"
PARSER = "VEKTPSLightParser/src/"

# A capture and its active view are linked both ways, the view first, in both schemas.
ACTIVE_VIEW_TAKEN = "  (void)capture.SetActiveView(activeView.Get());\n"
ACTIVE_VIEW_LINKS = (
    "  VEKComPtr<VEKITPSLightView> view;\n"
    "  if (VEKSucceeded(VEKQueryInterface(activeView.Get(), view)) && view) {\n"
    "    VEKComPtr<VEKBaseUnknown> captureBase;\n"
    "    if (VEKSucceeded(VEKQueryInterface(&capture, captureBase)) && captureBase) {\n"
    "      (void)view->AddCapture(captureBase.Get());\n"
    "    }\n"
    "    captureBase.Reset();\n"
    "  }\n"
    "  view.Reset();\n" + ACTIVE_VIEW_TAKEN)
ACTIVE_VIEW_LINKS_SWAPPED = ACTIVE_VIEW_TAKEN + ACTIVE_VIEW_LINKS[:-len(ACTIVE_VIEW_TAKEN)]

MUTATIONS = [
    # Foundation: base64, strings, numbers.
    mutation("base64-short-padding", FOUNDATION + "VEKCodePage.cpp",
             "    if (padding + count != 4) return -1;",
             "    if (padding + count > 4) return -1;",
             "base64 accepts a final quantum padded short (\"QQ=\")"),
    mutation("base64-encode-tail", FOUNDATION + "VEKCodePage.cpp",
             "const bool two = length - i == 2;",
             "const bool two = length - i == 1;",
             "the encoder pads a one-byte tail as a two-byte one"),
    mutation("substring-negative-start", FOUNDATION + "VEKUnicodeString.cpp",
             "  VEKUnicodeString piece;\n  if (start < 0) start = 0;",
             "  VEKUnicodeString piece;\n  if (start < 0) length += start, start = 0;",
             "SubString shortens the length by a negative start instead of keeping it"),
    mutation("substring-clamp-to-whole", FOUNDATION + "VEKUnicodeString.cpp",
             "length < length_ - start ? length : length_ - start",
             "length < length_ ? length : length_ - start",
             "SubString clamps the length to the whole string, not to what follows the start"),
    mutation("int-saturation", FOUNDATION + "VEKUnicodeString.cpp",
             "parsed = negative ? INT_MIN : INT_MAX;",
             "parsed = negative ? -INT_MAX : INT_MAX;",
             "\"%d\" below INT_MIN saturates one short of INT_MIN"),
    mutation("double-format-lf", FOUNDATION + "VEKUnicodeString.cpp",
             'std::strcmp(format, "%lf") != 0 &&',
             'std::strcmp(format, "%le") != 0 &&',
             "ConvertToNum no longer takes the \"%lf\" format"),

    # Compression.
    mutation("uncompress-trailing-bytes", "platform/compression/VEKSysUncompress.cpp",
             "if (consumed != static_cast<std::size_t>(sourceLength))",
             "if (consumed > static_cast<std::size_t>(sourceLength))",
             "bytes after the zlib stream are accepted"),
    mutation("uncompress-too-small-code", "platform/compression/VEKSysUncompress.cpp",
             "  if (result == LIBDEFLATE_INSUFFICIENT_SPACE) return VEKUncompressTargetTooSmall;\n",
             "",
             "output larger than the capacity reads as corrupt data, not as too small"),

    # Light XML: well-formedness, the writer, lines and columns.
    mutation("xml-comment-double-dash", LIGHTXML + "VEKLightXmlWellFormed.cpp",
             "if (p_[2] != '>') return Fail(p_, \"'--' not allowed in a comment\");",
             "if (p_[2] != '>') {\n          p_ += 2;\n          continue;\n        }",
             "'--' inside a comment is accepted"),
    mutation("xml-duplicate-attribute", LIGHTXML + "VEKLightXmlWellFormed.cpp",
             "if (!IsNewAttribute(name, static_cast<std::size_t>(p_ - name))) {",
             "if (false && !IsNewAttribute(name, static_cast<std::size_t>(p_ - name))) {",
             "an element with the same attribute twice is accepted"),
    mutation("xml-writer-carriage-return", LIGHTXML + "VEKLightXmlWriter.cpp",
             "(byte == '\\t' || byte == '\\n' ? 0 : kInText)",
             "(byte == '\\t' || byte == '\\n' || byte == '\\r' ? 0 : kInText)",
             "the writer leaves a carriage return in text unescaped, which does not parse back"),
    mutation("xml-crlf-two-lines", LIGHTXML + "VEKLightXmlParser.cpp",
             "return c == '\\n' || (c == '\\r' && (at + 1 == size || text[at + 1] != '\\n'));",
             "return c == '\\n' || c == '\\r';",
             "a CR LF pair counts as two line breaks"),
    mutation("xml-column-counts-bytes", LIGHTXML + "VEKLightXmlParser.cpp",
             "characters += (text[at] & 0xC0) != 0x80;",
             "++characters;",
             "error columns count bytes instead of characters"),

    # Scene graph.
    mutation("gltf-accessor-overrun", SCENEGRAPH + "RepBuilder.cpp",
             "!RangeWithin(steps * stride, elementSize, available)",
             "!RangeWithin(steps * stride, elementSize - 1, available)",
             "an accessor whose last element ends one byte past its view is accepted"),
    mutation("gltf-byte-stride-limit", SCENEGRAPH + "GltfReader.cpp",
             "constexpr std::uint64_t kMaxByteStride = 252;",
             "constexpr std::uint64_t kMaxByteStride = 256;",
             "the glTF reader accepts a byteStride of 256, which tinygltf refuses"),
    mutation("rep-memory-bound", SCENEGRAPH + "RepBuilder.cpp",
             "if (size != 0 && count > (limit_ - used_) / size) {",
             "if (size != 0 && count > limit_ - used_) {",
             "the memory bound counts items instead of bytes"),
    mutation("world-matrix-order", SCENEGRAPH + "RepBuilder.cpp",
             "MultiplyMatrices(rep.nodes_[static_cast<std::size_t>(node.parent)].worldMatrix, "
             "node.matrix,\n                         node.worldMatrix);",
             "MultiplyMatrices(node.matrix, "
             "rep.nodes_[static_cast<std::size_t>(node.parent)].worldMatrix,\n"
             "                         node.worldMatrix);",
             "a world matrix is local * parent instead of parent * local"),

    # The annotation model.
    mutation("model-resolve-keeps-reference", MODEL + "VEKTPSLightObjects.cpp",
             "return &object->GetCore() == this ? object.Get() : nullptr;",
             "return &object->GetCore() == this ? object.Detach() : nullptr;",
             "linking an object never releases the reference its query took"),
    mutation("model-duplicate-not-recorded", MODEL + "VEKTPSLightSet.cpp",
             "      duplicates_.push_back({id, object.Kind()});\n",
             "",
             "a second object with the same id is not recorded as a duplicate"),
    mutation("model-first-created-wins", MODEL + "VEKTPSLightSet.cpp",
             "if (object.Serial() < (*slot)->Serial()) *slot = &object;",
             "if (object.Serial() > (*slot)->Serial()) *slot = &object;",
             "a shared id finds the last object created instead of the first"),
    mutation("model-live-set-check", MODEL + "VEKTPSLightSet.cpp",
             "return IsLive(set) ? static_cast<LightSet*>(set) : nullptr;",
             "return set ? static_cast<LightSet*>(set) : nullptr;",
             "any set pointer handed in is taken for a live set of this library"),
    mutation("model-freed-set-listed", MODEL + "VEKTPSLightObjects.cpp",
             "    first_->AsSet()->Unlist();\n",
             "",
             "a freed set stays in the registry of live sets"),
    mutation("id-index-probe-bound", MODEL + "VEKIdIndex.cpp",
             "distance <= longest_ && slots_[slot].object",
             "distance < longest_ && slots_[slot].object",
             "a look-up stops one slot before the longest run"),

    # The parser.
    mutation("legacy-ref-frame-default", PARSER + "VEKTPSLightLegacyBuilders.cpp",
             "int number = 32;",
             "int number = 0;",
             "a legacy reference frame whose id does not convert gets 0, not 32"),
    mutation("inflate-ratio-bound", PARSER + "VEKTPSLightLoad.cpp",
             "if (uncompressedSize > static_cast<std::int64_t>(compressedSize) * kVEKMaxInflateRatio)",
             "if (uncompressedSize >= static_cast<std::int64_t>(compressedSize) * kVEKMaxInflateRatio)",
             "a declared size of exactly 1032 times the compressed size is refused"),
    mutation("legacy-value-count", PARSER + "VEKTPSLightRecorder.cpp",
             "if (expected < 0 ? count > 0 : count == expected) return true;",
             "if (expected < 0 ? count > 0 : count >= expected) return true;",
             "a legacy object with too many values is built"),
    mutation("order-group-pairing", PARSER + "VEKTPSLightLegacyBuilders.cpp",
             "if (count != annotations->Count()) return S_OK;",
             "if (count > annotations->Count()) return S_OK;",
             "order groups are paired with annotations although the counts differ"),
    mutation("order-group-ownership", PARSER + "VEKTPSLightLegacyBuilders.cpp",
             "if (VEKSucceeded(model->SetOrderGroup(group.get()))) (void)group.release();",
             "(void)model->SetOrderGroup(group.release());",
             "an order group the model refuses is never freed"),
    mutation("unknown-ref-frame-not-noted", PARSER + "VEKTPSLightRecorder.cpp",
             "if (reference != 0 && tActive) VEKNoteNamedId(VEKTPSLightKindRefFrame, reference, by);",
             "(void)by;",
             "an annotation naming an unknown reference frame is not recorded"),
    mutation("capture-link-order", PARSER + "VEKTPSLightElementReading.cpp",
             ACTIVE_VIEW_LINKS, ACTIVE_VIEW_LINKS_SWAPPED,
             "a capture takes its active view before the view learns of the capture"),
    mutation("list-first-character", PARSER + "VEKTPSLightParserInternal.h",
             "  int start = VEKCharacterLengthAt(text, 0);",
             "  int start = 0;",
             "a list's first character is read as part of its first item"),
    mutation("dump-own-bytes-with-doctype", LIGHTXML + "VEKLightXmlParser.cpp",
             "text.encoding == TextEncoding::kUtf8 && !text.extent.doctype && !text.read.bytes",
             "text.encoding == TextEncoding::kUtf8 && !text.read.bytes",
             "the dump copies a root whose document declares a document type"),
    mutation("line-starts-shifted", LIGHTXML + "VEKLightXmlParser.cpp",
             "lineStarts_.push_back(static_cast<std::uint32_t>(at - text));",
             "lineStarts_.push_back(static_cast<std::uint32_t>(at - text + 1));",
             "a line found by memchr starts one byte late"),
    mutation("dump-not-exclusive", PARSER + "VEKTPSLightReplacingFile.cpp",
             "O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC",
             "O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC",
             "the dump's temporary file may be a file that already exists"),
    mutation("object-limit-inclusive", PARSER + "VEKTPSLightLoad.cpp",
             "if (limit_ == 0 || built_ + expected <= limit_) return true;",
             "if (limit_ == 0 || built_ + expected < limit_) return true;",
             "a set that brings the objects built exactly to the limit is not built"),
    mutation("dump-write-check", PARSER + "VEKTPSLightReplacingFile.cpp",
             "if (error_ == 0 && std::rename(",
             "if (std::rename(",
             "a dump whose writing failed is renamed into place"),

    # The writer.
    mutation("writer-group-for-every-annotation", PARSER + "VEKTPSLightSetWriter.cpp",
             "    if (!group) {\n      xml_.StartElement(\"Grou\");\n      xml_.EndElement(\"Grou\");\n",
             "    if (!group) {\n",
             "an annotation without an order group gets no \"Grou\", so the load pairs the groups "
             "with the wrong annotations"),
    mutation("writer-shared-id", PARSER + "VEKTPSLightSetWriter.cpp",
             "} else if (!object.firstWithId) {",
             "} else if (false) {",
             "a link to an object whose id an earlier one has is written, and comes back to that one"),
    mutation("writer-zero-in-list", PARSER + "VEKTPSLightSetWriter.cpp",
             "      if (value == 0) {",
             "      if (false) {",
             "a 0 in an integer list is written without a warning, and the load drops it"),
    mutation("writer-rebuilt-links", PARSER + "VEKTPSLightSetWriter.cpp",
             "    CompareRebuiltLinks();\n",
             "",
             "views and captures the load rebuilds otherwise are not told"),
    mutation("compress-top-level", "platform/compression/VEKSysCompress.cpp",
             "level > kMaxLevel",
             "level >= kMaxLevel",
             "the smallest-output level 12 is refused"),

    # Links both ways.
    mutation("links-capture-view-role", PARSER + "VEKTPSLightLinks.cpp",
             "AddEach(from, &capture.GetViews(), VEKTPSLightRole::CaptureView);",
             "AddEach(from, &capture.GetViews(), VEKTPSLightRole::View);",
             "a capture's views are told as an annotation's views"),
    mutation("links-datums-dropped", PARSER + "VEKTPSLightLinks.cpp",
             "          AddEach(from, &frame.GetDatums(), VEKTPSLightRole::Datum);\n",
             "",
             "a datum does not know the reference frames that name it"),

    # Export.
    mutation("json-status-member", "export/VEKTPSLightJsonExport.cpp",
             '{"status", Optional(light->GetStatus())}',
             '{"status", Optional(light->GetType())}',
             "the JSON status of an object is its type"),
    mutation("csv-quote-doubling", "export/VEKTPSLightCsvExport.cpp",
             "    if (c == '\"') csv += '\"';\n",
             "",
             "a quote inside a quoted CSV field is not doubled"),

    # The glTF scene of a load.
    mutation("scene-camera-target", "scene/VEKTPSLightScene.cpp",
             "forward = Unit(Subtract(FromModel(*target), eye));",
             "forward = Unit(Subtract(eye, FromModel(*target)));",
             "a camera without a direction looks away from its target"),
    mutation("scene-skipped-blob-count", "scene/VEKTPSLightScene.cpp",
             "      ++counts_.skipped;\n",
             "",
             "a graphic left out of the scene is not counted, so the build does not tell it"),

    # The Python package.
    mutation("python-active-view-member", "python/VEKPythonModel.cpp",
             '    case VEKTPSLightRole::ActiveView:\n      return "active_view";\n',
             '    case VEKTPSLightRole::ActiveView:\n      return "views";\n',
             "a capture naming its active view is told as naming one of its views"),

    # The tool.
    mutation("tool-c1-filter", "tool/VEKToolReport.cpp",
             "(static_cast<unsigned char>(text[at + 1]) & 0xE0) == 0x80",
             "(static_cast<unsigned char>(text[at + 1]) & 0xF0) == 0x80",
             "U+0090 to U+009F reach the terminal"),
    mutation("tool-usage-exit-code", "tool/VEKToolMain.cpp",
             "return app.exit(error) == 0 ? 0 : 2;",
             "return app.exit(error);",
             "a usage error exits with CLI11's code instead of 2"),
    mutation("tool-stdin-limit", "tool/VEKToolInput.cpp",
             "if (bytes.size() > limit) {",
             "if (bytes.size() > limit + kChunk) {",
             "standard input may pass the byte limit by a chunk"),
]
