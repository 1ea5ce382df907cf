// Chooses the back end.
#ifndef HOST_FILTER_MGR_BACKENDS_H_
#define HOST_FILTER_MGR_BACKENDS_H_

#include <memory>
#include <string>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/port_names.h"

namespace host {

struct OpenedBackend {
  std::unique_ptr<Backend> backend;  // null: none could be opened
  std::string why;                   // why this one, or why none; for people
  bool enforces = false;             // whether it filters at all
  bool second_best = false;          // whether a better one was asked for and cannot be had
};

// Opens the back end that the setting filter_backend asks for: one by its name, or with "kernel"
// the best one that the kernel and the privileges allow.
OpenedBackend OpenBackend(const std::string& setting, const PortNames& names);

}  // namespace host

#endif  // HOST_FILTER_MGR_BACKENDS_H_
