// Two-way translation between enumerators and their text forms in files: the one way the family
// turns an enumeration into text and back. Each enumeration keeps one translator in its source
// file, filled once at load and only read afterwards, so reads from any thread need no lock.
// An implementation header of the libraries: the umbrella headers leave it out.
#pragma once

#include <map>
#include <stdexcept>
#include <string>

namespace kelto::common {

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

  // Throws std::invalid_argument for a text that is not registered; callers that accept any
  // text use ValueOr.
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

  // The lenient lookups of enumerations that read any text and write any value: what is not
  // registered gives the fallback instead of an exception.
  Enum ValueOr(const Text& text, Enum fallback) const {
    auto it = left_.find(text);
    return it == left_.end() ? fallback : *it->second;
  }
  Text TextOr(Enum value, const Text& fallback) const {
    auto it = right_.find(value);
    return it == right_.end() ? fallback : *it->second;
  }

 private:
  std::map<Text, const Enum*> left_;
  std::map<Enum, const Text*> right_;
};

}  // namespace kelto::common
