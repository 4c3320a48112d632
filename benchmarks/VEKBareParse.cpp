// vektps-bare-parse FILE: the least a program that loads an XML document does, the yardstick of
// `vektps summary` in the benchmark's whole-process runs. It reads the file whole into memory the
// plain way, parses it with pugixml's load_buffer (default options, which copies the bytes) and
// prints the count of elements.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <pugixml.hpp>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: vektps-bare-parse FILE\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary | std::ios::ate);
  if (!in) {
    std::fprintf(stderr, "vektps-bare-parse: cannot open %s\n", argv[1]);
    return 1;
  }
  const auto size = static_cast<std::size_t>(in.tellg());
  const std::unique_ptr<char[]> bytes(new char[size]);
  in.seekg(0);
  if (!in.read(bytes.get(), static_cast<std::streamsize>(size))) {
    std::fprintf(stderr, "vektps-bare-parse: cannot read %s\n", argv[1]);
    return 1;
  }
  pugi::xml_document document;
  const pugi::xml_parse_result parsed = document.load_buffer(bytes.get(), size);
  if (!parsed) {
    std::fprintf(stderr, "vektps-bare-parse: %s at offset %lld\n", parsed.description(),
                 static_cast<long long>(parsed.offset));
    return 1;
  }
  // Depth first, without recursion: the next node is the first child, else the next sibling of
  // the nearest node that has one.
  std::int64_t elements = 0;
  for (pugi::xml_node node = document.first_child(); node;) {
    elements += node.type() == pugi::node_element;
    if (node.first_child()) {
      node = node.first_child();
      continue;
    }
    while (node && !node.next_sibling()) node = node.parent();
    if (node) node = node.next_sibling();
  }
  std::printf("%lld elements\n", static_cast<long long>(elements));
  return 0;
}
