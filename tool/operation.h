// What one operation of the command is made of.
//
// A new operation is one file in operations/, listed in CMakeLists.txt: a class derived from
// Operation and a RegisterOperation object that gives it its subcommand.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dib.h"

namespace CLI {
class App;
}

namespace kvl::tool {

class Operation {
 public:
  virtual ~Operation() = default;

  virtual void addOptions(CLI::App& command) = 0;

  // Whether frames are read with their alpha, and results written with it. As it stands, alpha is
  // dropped.
  virtual bool keepsAlpha() const;

  // What the help calls a second input, which stands between the first and the output; null for
  // none. As it stands, there is none.
  virtual const char* secondInput() const;

  // Whether the options as given want the second input; asked after parsing.
  virtual bool wantsSecondInput() const;

  // Called once a frame before prepare(), with the frame of the second input, which has the size of
  // the first one's and stays until the next call.
  virtual void useSecond(const Dib& frame);

  // Called before every run(), outside the timed part: gives `result` its size and the contents
  // that run() starts from. As it stands, `result` becomes a copy of `frame`, which is what
  // routines that work in place need. An operation sizes its own scratch here, keeping it between
  // frames. Throws Error when the options do not fit the frame.
  virtual void prepare(const Dib& frame, Dib& result);

  // The timed part: the calls into the library, and nothing else. Every frame of a clip has the
  // same size, and must give results of one size.
  virtual void run(const Dib& frame, Dib& result) = 0;

  // Called once a frame after its last run(), outside the timed part: brings into `result` what
  // the library has left elsewhere. As it stands, it does nothing.
  virtual void finish(Dib& result);

  // Called once after the last frame: the place to print what all frames together show. As it
  // stands, it does nothing.
  virtual void conclude();

  // Of how many pixels --time says that run() has done them. As it stands, all of the frame.
  virtual int64_t pixels(const Dib& frame) const;
};

struct OperationEntry {
  std::string name;
  std::string summary;
  std::function<std::unique_ptr<Operation>()> make;
};

// Every registered operation, by name.
std::vector<OperationEntry> operations();

void registerOperation(OperationEntry entry);

template <typename T>
struct RegisterOperation {
  RegisterOperation(const char* name, const char* summary) {
    registerOperation({name, summary, [] { return std::make_unique<T>(); }});
  }
};

}  // namespace kvl::tool
