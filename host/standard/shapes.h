// The forms of the statements that the readers know: what is a container, a list, a leaf.
//
// A document is read without its schema (document.h), so that a leaf may stand there twice, or as a
// container, or a text where a container should be. A reader that took such a node for what it
// should be would pass over a part of it. So each node is held against the form of its name before
// it is taken.
#ifndef HOST_STANDARD_SHAPES_H_
#define HOST_STANDARD_SHAPES_H_

#include "host/standard/document.h"

namespace host::standard {

// What is wrong with the form of a node of `parent`, in words; null where nothing is, and for
// annotations and state, whose form does not matter. A statement that is in no table is taken for
// a leaf.
const char* FaultOf(const Node& parent, const Node& node);

}  // namespace host::standard

#endif  // HOST_STANDARD_SHAPES_H_
