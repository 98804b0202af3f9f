#include "examples/host/screen.h"

#include "examples/common/drawing.h"

#include <cstddef>

namespace example {
namespace {

/// A copy of a part of the screen.
class ScreenCopy {
public:
  explicit ScreenCopy(const RECT& area)
      : m_width(area.right - area.left), m_height(area.bottom - area.top), m_screen(GetDC(nullptr)),
        m_bitmap(CreateCompatibleBitmap(m_screen, m_width, m_height)) {
    const HDC memory = CreateCompatibleDC(m_screen);
    const HGDIOBJ before = SelectObject(memory, m_bitmap);
    BitBlt(memory, 0, 0, m_width, m_height, m_screen, area.left, area.top, SRCCOPY);
    SelectObject(memory, before);
    DeleteDC(memory);
  }
  ~ScreenCopy() {
    DeleteObject(m_bitmap);
    ReleaseDC(nullptr, m_screen);
  }
  ScreenCopy(const ScreenCopy&) = delete;
  ScreenCopy& operator=(const ScreenCopy&) = delete;

  HBITMAP Bitmap() const { return m_bitmap; }

  std::vector<std::uint32_t> Pixels() const {
    if (m_width <= 0 || m_height <= 0) {
      return {};
    }
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height));
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = m_width;
    info.bmiHeader.biHeight = -m_height; // from the top down
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    if (GetDIBits(m_screen, m_bitmap, 0, static_cast<UINT>(m_height), pixels.data(), &info, DIB_RGB_COLORS) == 0) {
      pixels.clear();
    }
    return pixels;
  }

private:
  const int m_width;
  const int m_height;
  const HDC m_screen;
  const HBITMAP m_bitmap;
};

} // namespace

std::vector<std::uint32_t> ReadScreen(const RECT& area) { return ScreenCopy(area).Pixels(); }

bool SaveScreen(const RECT& area, const std::wstring& path) {
  const ScreenCopy copy(area);
  Gdiplus::Bitmap image(copy.Bitmap(), nullptr);
  return SavePng(image, path);
}

} // namespace example
