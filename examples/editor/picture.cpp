#include "examples/editor/picture.h"

#include <cstdint>
#include <utility>

namespace example {
namespace {

constexpr std::int64_t kMaxFileBytes = 256LL * 1024 * 1024;
constexpr std::int64_t kMaxPixels = 100'000'000;

/// The file as a stream in memory, which takes its block along; null when it cannot be read.
IStream* ReadFileStream(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return nullptr;
  }
  IStream* stream = nullptr;
  LARGE_INTEGER size{};
  if (GetFileSizeEx(file, &size) && size.QuadPart > 0 && size.QuadPart <= kMaxFileBytes) {
    const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, static_cast<SIZE_T>(size.QuadPart));
    if (block != nullptr) {
      DWORD read = 0;
      void* bytes = GlobalLock(block);
      const bool isRead =
          bytes != nullptr && ReadFile(file, bytes, size.LowPart, &read, nullptr) && read == size.LowPart;
      GlobalUnlock(block);
      if (!isRead || CreateStreamOnHGlobal(block, TRUE, &stream) != S_OK) {
        GlobalFree(block);
        stream = nullptr;
      }
    }
  }
  CloseHandle(file);
  return stream;
}

} // namespace

bool Picture::Load(const std::wstring& path) {
  m_bitmap.reset();
  IStream* stream = ReadFileStream(path);
  if (stream == nullptr) {
    return false;
  }
  {
    Gdiplus::Bitmap source(stream);
    const std::int64_t width = source.GetWidth();
    const std::int64_t height = source.GetHeight();
    if (source.GetLastStatus() == Gdiplus::Ok && width > 0 && height > 0 && width * height <= kMaxPixels) {
      // The decoder works lazily and from the stream: a copy is decoded once and needs neither.
      auto copy =
          std::make_unique<Gdiplus::Bitmap>(static_cast<INT>(width), static_cast<INT>(height), PixelFormat32bppPARGB);
      Gdiplus::Graphics graphics(copy.get());
      if (graphics.DrawImage(&source, 0, 0, static_cast<INT>(width), static_cast<INT>(height)) == Gdiplus::Ok) {
        m_bitmap = std::move(copy);
      }
    }
  }
  stream->Release();
  return IsLoaded();
}

int Picture::Width() const { return m_bitmap ? static_cast<int>(m_bitmap->GetWidth()) : 0; }

int Picture::Height() const { return m_bitmap ? static_cast<int>(m_bitmap->GetHeight()) : 0; }

void Picture::Transform(Gdiplus::RotateFlipType how) {
  if (m_bitmap) {
    m_bitmap->RotateFlip(how);
  }
}

bool Picture::Save(const std::wstring& path) const { return m_bitmap && SavePng(*m_bitmap, path); }

void Picture::Draw(Gdiplus::Graphics& graphics, Gdiplus::RectF box) const {
  if (m_bitmap) {
    graphics.SetInterpolationMode(Gdiplus::InterpolationModeHighQualityBicubic);
    graphics.SetPixelOffsetMode(Gdiplus::PixelOffsetModeHalf);
    graphics.DrawImage(m_bitmap.get(), box);
  }
}

} // namespace example
