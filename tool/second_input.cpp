#include "second_input.h"

#include "error.h"

namespace kvl::tool {
namespace {

std::string toText(Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

}  // namespace

SecondInput::SecondInput(const std::string& path, bool firstIsClip)
    : name_(inputName(path)), reader_(path) {
  if (reader_.traits().isClip && !firstIsClip) {
    throw Error(name_, "is a clip, but the first input is a picture", usage);
  }
}

const Dib& SecondInput::next(Size size) {
  const bool isStill = !reader_.traits().isClip && !frame_.bits.empty();
  if (!isStill) {
    const AVFrame* decoded = reader_.next();
    if (decoded == nullptr) throw Error(name_, "has fewer frames than the first input");
    colours_.toDib(*decoded, frame_);
  }
  if (frame_.size() != size) {
    throw Error(name_,
                "has " + toText(frame_.size()) + " pixels, but the first input " + toText(size));
  }
  return frame_;
}

}  // namespace kvl::tool
