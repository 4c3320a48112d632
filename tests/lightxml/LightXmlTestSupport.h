// Helpers shared by the light XML tests: parse a string, dump an element, walk and describe a tree.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VEKLightXml.h"

namespace lightxml_test {

inline std::string Text(const VEKUnicodeString& text) {
  return std::string(text.ConvertToChar(), text.GetLengthInByte());
}

// Reads from a block of exactly the text's length, so that a read past its end shows under the
// address sanitizer.
inline bool Parse(const std::string& text, VEKLightXmlElement& root,
                  VEKLightXmlParser* parser = nullptr) {
  const std::unique_ptr<unsigned char[]> block(new unsigned char[text.size()]);
  std::memcpy(block.get(), text.data(), text.size());
  VEKLightXmlParser local;
  VEKLightXmlInputStreamBuffer input(block.get(), static_cast<int>(text.size()));
  return (parser ? parser : &local)->Parse(input, root) != 0;
}

// The bytes written so far, taken out of the stream.
inline std::string Take(VEKLightXmlOutputStreamBuffer& output) {
  unsigned char* bytes = nullptr;
  int length = 0;
  output.GetBuffer(bytes, length);
  std::string text(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(length));
  delete[] bytes;
  return text;
}

inline std::string Dump(const VEKLightXmlElementItf& element) {
  VEKLightXmlOutputStreamBuffer output;
  return VEKLightXmlParser().GetXml(element, output) ? Take(output) : "<GetXml failed>";
}

inline std::vector<VEKLightXmlElementItf*> Children(const VEKLightXmlElementItf& element) {
  std::vector<VEKLightXmlElementItf*> children;
  void* position = element.GetChildren();
  while (position) children.push_back(element.GetChild(position));
  return children;
}

// name[attribute=value,...]'text'{children}, written without recursion.
inline std::string Tree(const VEKLightXmlElementItf& root) {
  std::string tree;
  // Each entry: an element still to write, or null for a closing brace.
  std::vector<const VEKLightXmlElementItf*> pending{&root};
  while (!pending.empty()) {
    const VEKLightXmlElementItf* element = pending.back();
    pending.pop_back();
    if (!element) {
      tree += '}';
      continue;
    }
    tree += Text(element->GetName()) + '[';
    for (int index = 1; index <= element->GetAttributeCount(); ++index) {
      if (index > 1) tree += ',';
      tree +=
          Text(element->GetAttributeName(index)) + '=' + Text(element->GetAttributeValueAt(index));
    }
    tree += ']';
    if (element->GetValue().GetLengthInByte() > 0) tree += '\'' + Text(element->GetValue()) + '\'';
    tree += '{';
    pending.push_back(nullptr);
    const std::vector<VEKLightXmlElementItf*> children = Children(*element);
    pending.insert(pending.end(), children.rbegin(), children.rend());
  }
  return tree;
}

}  // namespace lightxml_test
