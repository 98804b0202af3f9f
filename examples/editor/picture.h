#pragma once

#include "examples/common/drawing.h"

#include <memory>
#include <string>

namespace example {

/// A decoded picture in memory; the file is closed again once it is loaded.
class Picture {
public:
  /// Reads and decodes a file. False when there is none, it is too large or holds no picture that GDI+ knows; then
  /// there is no picture. Blocks for the file and the decoder.
  bool Load(const std::wstring& path);

  void Clear() { m_bitmap.reset(); }
  bool IsLoaded() const { return m_bitmap != nullptr; }
  int Width() const;
  int Height() const;

  /// Turns or mirrors the picture.
  void Transform(Gdiplus::RotateFlipType how);

  /// Writes it as PNG. False when that failed.
  bool Save(const std::wstring& path) const;

  /// Draws the whole picture into a box.
  void Draw(Gdiplus::Graphics& graphics, Gdiplus::RectF box) const;

private:
  std::unique_ptr<Gdiplus::Bitmap> m_bitmap;
};

} // namespace example
