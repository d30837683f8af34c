#ifndef MORVA_EXPORT_PICTURES_SILENCE_H_
#define MORVA_EXPORT_PICTURES_SILENCE_H_

namespace morva {

/// Keeps the picture libraries from writing to standard error while pictures are decoded.
///
/// OpenCV's settings are of the whole process, which may use it too: they are put back when the
/// last of the decodings that are going on ends. Threads: any number, each with one of its own.
class Silence {
 public:
  Silence();
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence();
};

}  // namespace morva

#endif  // MORVA_EXPORT_PICTURES_SILENCE_H_
