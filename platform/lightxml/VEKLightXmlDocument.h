// Internals of the light XML layer: the parsed document shared by every handle on it, and the
// element records that the handles designate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include <pugixml.hpp>

#include "VEKLightXml.h"

namespace vek_lightxml_detail {

class Document;

// The shared empty string returned by every read that finds nothing.
const VEKUnicodeString& EmptyString() noexcept;

// Storage for objects that live exactly as long as their document: allocation costs O(1), objects
// never move, and everything is destroyed at once with the arena.
template <class T>
class Arena {
 public:
  Arena() noexcept = default;
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;
  ~Arena() {
    while (chunks_) {
      Chunk* next = chunks_->next;
      T* items = Items(chunks_);
      for (std::size_t i = 0; i < chunks_->used; ++i) items[i].~T();
      ::operator delete(chunks_);
      chunks_ = next;
    }
  }

  // Raw room for `count` objects side by side, or null when memory runs out. The caller constructs
  // all `count` objects in order (with noexcept constructors) before the next call, since the
  // arena destroys them.
  T* Allocate(std::size_t count) noexcept {
    if (count == 0 || count > kMaxCount) return nullptr;
    if (chunks_ && chunks_->capacity - chunks_->used >= count) return Take(chunks_, count);
    if (chunks_ && count > kMaxChunkItems / 4) {
      // A large run gets a chunk of its own behind the current one, which keeps serving small runs.
      Chunk* chunk = NewChunk(count);
      if (!chunk) return nullptr;
      chunk->next = chunks_->next;
      chunks_->next = chunk;
      return Take(chunk, count);
    }
    Chunk* chunk = NewChunk(count > nextCapacity_ ? count : nextCapacity_);
    if (!chunk) return nullptr;
    chunk->next = chunks_;
    chunks_ = chunk;
    if (nextCapacity_ < kMaxChunkItems) nextCapacity_ *= 2;
    return Take(chunk, count);
  }

 private:
  struct Chunk {
    Chunk* next;
    std::size_t capacity;
    std::size_t used;
  };
  static_assert(alignof(T) <= alignof(std::max_align_t), "arena items need default alignment");
  static constexpr std::size_t kItemsOffset =
      (sizeof(Chunk) + alignof(T) - 1) / alignof(T) * alignof(T);
  static constexpr std::size_t kMaxChunkItems = (std::size_t{1} << 20) / sizeof(T);
  static constexpr std::size_t kMaxCount = (SIZE_MAX - kItemsOffset) / sizeof(T);

  static T* Items(Chunk* chunk) noexcept {
    return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(chunk) + kItemsOffset);
  }
  static T* Take(Chunk* chunk, std::size_t count) noexcept {
    T* room = Items(chunk) + chunk->used;
    chunk->used += count;
    return room;
  }
  static Chunk* NewChunk(std::size_t capacity) noexcept {
    void* memory = ::operator new(kItemsOffset + capacity * sizeof(T), std::nothrow);
    if (!memory) return nullptr;
    return new (memory) Chunk{nullptr, capacity, 0};
  }

  Chunk* chunks_ = nullptr;
  std::size_t nextCapacity_ = 16;
};

// One element of a parsed document. Its children are made on the first request, all at once and
// side by side in the node arena, so a child walk is pointer arithmetic. The name, the text value
// and the attribute values are converted on first request and kept for the document's lifetime.
class Node final : public VEKLightXmlElementItf {
 public:
  Node(Document& document, pugi::xml_node element, const Node* parent) noexcept;
  ~Node() override = default;

  bool IsNull() const override;
  int SetElement(VEKLightXmlElementItf* other) override;
  int GetChildCount() const override;
  void* GetChildren() const override;
  VEKLightXmlElementItf* GetChild(void*& position) const override;
  VEKLightXmlElementItf* GetParent() const override;
  const VEKUnicodeString& GetName() const override;
  int GetAttributeCount() const override;
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name,
                                            const VEKUnicodeString& defaultValue) const override;
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name) const override;
  const VEKUnicodeString& GetAttributeName(int index) const override;
  const VEKUnicodeString& GetAttributeValueAt(int index) const override;
  bool HasAttribute(const VEKUnicodeString& name) const override;
  const VEKUnicodeString& GetValue() const override;
  std::ptrdiff_t GetSourceOffset() const override;
  const void* GetNodeIdentity() const override;
  std::string_view GetNameView() const override;
  std::string_view GetAttributeView(std::string_view name) const override;
  std::string_view GetValueView() const override;
  void ForEachChildValue(std::string_view attribute, std::string_view descendInto,
                         VEKLightXmlValueVisitor& visitor) const override;

  Document& GetDocument() const noexcept { return *document_; }
  pugi::xml_node GetXmlNode() const noexcept { return element_; }

 private:
  bool BuildChildren() const noexcept;
  bool BuildStrings() const noexcept;
  // 1-based index of attribute `name`, 0 when absent.
  int FindAttribute(const VEKUnicodeString& name) const noexcept;
  Node* NextSibling() const noexcept;

  Document* document_;
  pugi::xml_node element_;
  const Node* parent_;
  mutable Node* firstChild_ = nullptr;
  mutable const VEKUnicodeString* name_ = nullptr;
  // The attribute values in document order, then the text value unless it is empty; null until
  // built (the shared empty string when there is nothing to keep).
  mutable const VEKUnicodeString* strings_ = nullptr;
  // -1 until built.
  mutable std::int32_t childCount_ = -1;
  // Both valid once strings_ is built.
  mutable std::uint32_t attributeCount_ : 31;
  mutable std::uint32_t hasValue_ : 1;
};

// A parsed document and everything made from it; shared by all handles on its nodes.
class Document : public std::enable_shared_from_this<Document> {
 public:
  Document() noexcept = default;
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  // The node of the document element; null when memory runs out.
  Node* NewRoot(pugi::xml_node element) noexcept;
  // Raw room for `count` nodes or strings side by side (see Arena::Allocate); null when memory
  // runs out.
  Node* AllocateNodes(std::size_t count) noexcept { return nodes_.Allocate(count); }
  VEKUnicodeString* AllocateStrings(std::size_t count) noexcept { return strings_.Allocate(count); }
  // The one shared string for a tag or attribute name; null when memory runs out.
  const VEKUnicodeString* Intern(const char* utf8) noexcept;
  // Makes at `room` a string that refers to the zero-terminated parsed text in place (a copy only
  // when the text needs repair), which stays valid while the document lives.
  static void NewParsedString(VEKUnicodeString* room, const char* utf8,
                              std::size_t length) noexcept {
    new (room) VEKUnicodeString(VEKUnicodeString::BorrowTag{}, utf8, length);
  }
  // Reusable room for listing the children of one element at a time.
  std::vector<pugi::xml_node>& ChildScratch() noexcept { return childScratch_; }

  pugi::xml_document xml;

 private:
  // One entry of the open-addressing name table; the bytes are the parsed name, which stays in
  // place while the document lives.
  struct NameSlot {
    const char* bytes = nullptr;
    std::size_t length = 0;
    std::uint64_t hash = 0;
    const VEKUnicodeString* name = nullptr;
  };

  bool GrowNames();

  Arena<Node> nodes_;
  Arena<VEKUnicodeString> strings_;
  std::vector<NameSlot> names_;
  std::size_t nameCount_ = 0;
  std::vector<pugi::xml_node> childScratch_;
};

}  // namespace vek_lightxml_detail
