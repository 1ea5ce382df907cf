#include "host/runtime/state_providers.h"

#include <utility>

namespace host {

StateProviders::Registration::~Registration() {
  if (const auto entries = entries_.lock()) {
    entries->erase(entry_);
  }
}

StateProviders::Registration& StateProviders::Registration::operator=(
    Registration&& other) noexcept {
  std::swap(entries_, other.entries_);
  std::swap(entry_, other.entry_);
  return *this;
}

StateProviders::Registration StateProviders::Add(Entry entry) {
  Registration registration;
  registration.entry_ = entries_->insert(entries_->end(), std::move(entry));
  registration.entries_ = entries_;
  return registration;
}

}  // namespace host
