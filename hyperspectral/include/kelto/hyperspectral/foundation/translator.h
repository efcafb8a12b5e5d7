// Two-way translation between the enumerators that records store and their text forms in files.
// Each enumeration of the library keeps one translator, filled once at load and only read
// afterwards, so that reads from several threads need no lock.
#pragma once

#include <map>
#include <stdexcept>
#include <string>

namespace kelto::hyperspectral {

// A pair of ordered maps: text to enumerator (left) and enumerator to text (right). Each entry
// points at the key of its partner in the other map instead of holding a copy; std::map never
// moves its nodes, so these pointers stay valid for the translator's whole life. For the same
// reason a translator can be neither copied nor moved.
//
// Text is compared exactly, by the order of Text (case-sensitive, no trimming). Text is
// std::string for the stored enumerations and std::wstring for the one that works on wide text.
template <typename Enum, typename Text = std::string>
class Translator {
 public:
  Translator() = default;
  Translator(const Translator&) = delete;
  Translator& operator=(const Translator&) = delete;

  // Adds a pair. A text that is already registered is ignored whole, so the first registration
  // of a text wins in both directions. A further text for a value already registered reads back
  // to that value and becomes the value's text.
  void Register(const Text& text, Enum value) {
    auto [left, inserted] = left_.emplace(text, nullptr);
    if (!inserted) {
      return;
    }
    auto right = right_.emplace(value, nullptr).first;
    left->second = &right->first;
    right->second = &left->first;
  }

  bool HasKey(const Text& text) const { return left_.find(text) != left_.end(); }
  bool HasValue(Enum value) const { return right_.find(value) != right_.end(); }

  // Throws std::invalid_argument for a text that is not registered; callers that accept any
  // text test HasKey first.
  Enum ValueOf(const Text& text) const {
    auto it = left_.find(text);
    if (it == left_.end()) {
      throw std::invalid_argument("Key does not exist.");
    }
    return *it->second;
  }

  // Throws std::invalid_argument for a value that is not registered.
  const Text& TextOf(Enum value) const {
    auto it = right_.find(value);
    if (it == right_.end()) {
      throw std::invalid_argument("Value does not exist.");
    }
    return *it->second;
  }

 private:
  std::map<Text, const Enum*> left_;
  std::map<Enum, const Text*> right_;
};

}  // namespace kelto::hyperspectral
