#pragma once

#include <string>

struct _cairo;

namespace lab {

constexpr double kPointsPerMillimetre = 72.0 / 25.4; // the unit of a vector picture

// A vector picture in memory, which is drawn by its context in millimetres from the upper left
// corner.
class Drawing {
  public:
    enum class Format { kPdf, kSvg };

    // The size of a page, in millimetres.
    Drawing(Format format, double width, double height);
    ~Drawing();
    Drawing(const Drawing&) = delete;
    Drawing& operator=(const Drawing&) = delete;

    _cairo* Context() const { return m_context; }

    // The picture's file; ends the drawing.
    std::string Finish();

  private:
    std::string m_file;
    _cairo* m_context;
};

} // namespace lab
