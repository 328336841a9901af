#include <CLI/App.hpp>
#include <algorithm>
#include <memory>
#include <string>

#include "colour_conversion.h"
#include "error.h"
#include "media_reader.h"
#include "operation.h"
#include "options.h"

namespace kvl::tool {
namespace {

std::string text(Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

class Fields final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    command
        .add_option("--with", otherPath_,
                    "Picture or clip that the field comes from "
                    "[file, of the input's size, default none]")
        ->required()
        ->option_text("FILE");
    addChoice(command, "--field", field_, "field", {"top", "bottom"},
              "Field that is taken over: rows 0, 2, 4 ... or 1, 3, 5 ... from the top");
  }

  void prepare(const Dib& frame, Dib& result) override {
    Operation::prepare(frame, result);
    if (nextIsDue_) readOther(frame.size());
    nextIsDue_ = false;
  }

  void run(const Dib&, Dib& result) override {
    KVL_VoeCombineHalfFramesLpbi(&result.header, result.bits.data(), other_.bits.data(),
                                 fieldInMemory(result.size()));
  }

  // The library leaves the last row in memory of an odd height.
  void finish(Dib& result) override {
    if (result.size().height % 2 == 1 && field_ == "top") {
      std::copy_n(other_.rowFromTop(0), result.stride(), result.rowFromTop(0));
    }
    nextIsDue_ = true;
  }

 private:
  // Rows in memory begin with the picture's lowest.
  int32_t fieldInMemory(Size size) const {
    const int parity = field_ == "top" ? 0 : 1;
    return (size.height - 1 - parity) % 2;
  }

  // The next frame of a clip; of a picture, the one that there is.
  void readOther(Size size) {
    if (other_.bits.empty()) {
      if (otherPath_ == "-") throw Error("--with", "cannot be standard input", usage);
      reader_ = std::make_unique<MediaReader>(otherPath_);
    } else if (!reader_->traits().isClip) {
      return;
    }
    const AVFrame* decoded = reader_->next();
    if (decoded == nullptr) throw Error(otherPath_, "ends before the input");
    colours_.toDib(*decoded, other_);
    if (other_.size() != size) {
      throw Error(otherPath_,
                  "has " + text(other_.size()) + " pixels, but the input " + text(size));
    }
  }

  std::string otherPath_;
  std::string field_ = "bottom";
  bool nextIsDue_ = true;
  std::unique_ptr<MediaReader> reader_;
  ColourConverter colours_;
  Dib other_;
};

const RegisterOperation<Fields> g_fields("fields", "Take one field over from another picture");

}  // namespace
}  // namespace kvl::tool
