#include "read_picture.h"

#include "colour_conversion.h"
#include "error.h"
#include "media_reader.h"

namespace kvl::tool {

Dib readPicture(const std::string& option, const std::string& path) {
  MediaReader reader(path);
  if (reader.traits().isClip) {
    throw Error(option, "takes a picture, but " + inputName(path) + " is a clip", usage);
  }
  const AVFrame* frame = reader.next();
  if (frame == nullptr) throw Error(inputName(path), "truncated or damaged (holds no frame)");
  Dib picture;
  ColourConverter().toDib(*frame, picture);
  return picture;
}

}  // namespace kvl::tool
