// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

namespace velor::store {

/// Where in a document something stands.
class KeyedPath {
 public:
  /// A key of an object, or a place in an array.
  using Step = std::variant<std::string, std::size_t>;

  /// One step further for the length of a scope.
  class Scope {
   public:
    Scope(KeyedPath& path, Step step) : mPath(path) { path.push(std::move(step)); }
    ~Scope() { mPath.pop(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    KeyedPath& mPath;
  };

  void push(Step step) { mSteps.push_back(std::move(step)); }
  void pop() { mSteps.pop_back(); }
  Step& last() { return mSteps.back(); }

  /// "devices.manager[3].endpoint", for a message.
  std::string text() const;

 private:
  std::vector<Step> mSteps;
};

}  // namespace velor::store
