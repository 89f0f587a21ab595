#pragma once

#include <stdexcept>
#include <string>

namespace Ent {

// Raised by the entity framework when a caller breaks a collection rule, for
// example re-creating an entry under its key with different construction values.
class Error : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// A null reference handed to a collection that does not hold nulls.
class NullArgument : public Error {
 public:
  using Error::Error;
};

}  // namespace Ent
