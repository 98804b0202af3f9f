#include "examples/common/drawing.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace sdktest;

constexpr int kStatusHeight = 28; // of the line below the picture
constexpr int kNear = 32;         // of 255, for what scaling does to a colour

/// The picture of a file's bytes; null when these are none.
std::unique_ptr<Gdiplus::Bitmap> Decode(const std::string& bytes) {
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes.size() + 1);
  std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
  GlobalUnlock(block);
  IStream* stream = nullptr;
  if (CreateStreamOnHGlobal(block, TRUE, &stream) != S_OK) {
    GlobalFree(block);
    return nullptr;
  }
  ULARGE_INTEGER size{};
  size.QuadPart = bytes.size();
  stream->SetSize(size);
  auto bitmap = std::make_unique<Gdiplus::Bitmap>(stream);
  stream->Release();
  const bool isWhole = bitmap->GetLastStatus() == Gdiplus::Ok && bitmap->GetWidth() > 0 && bitmap->GetHeight() > 0;
  return isWhole ? std::move(bitmap) : nullptr;
}

Gdiplus::Color ColorAt(Gdiplus::Bitmap& bitmap, UINT x, UINT y) {
  Gdiplus::Color color;
  EXPECT_EQ(bitmap.GetPixel(static_cast<INT>(x), static_cast<INT>(y), &color), Gdiplus::Ok);
  return color;
}

/// The largest difference of a channel.
int Distance(Gdiplus::Color a, Gdiplus::Color b) {
  const int red = std::abs(a.GetR() - b.GetR());
  const int green = std::abs(a.GetG() - b.GetG());
  const int blue = std::abs(a.GetB() - b.GetB());
  return std::max(red, std::max(green, blue));
}

std::string Text(Gdiplus::Color color) {
  return std::to_string(color.GetR()) + " " + std::to_string(color.GetG()) + " " + std::to_string(color.GetB());
}

class Editor : public SdkTest {
protected:
  /// Opens a file and waits for what its editor says of it.
  void OpenUntil(const std::wstring& path, const std::string& param) {
    StartHost({{L"VEXEL_EDITOR_SNAPSHOT", Folder().Path() + L"snapshot-%PID%.png"}});
    const std::int32_t id = Open(Host().Ask("window"), path);
    const Event bound = Host().WaitForEvent(id, kProcessSuccess);
    m_snapshot = Folder().Path() + L"snapshot-" + std::to_wstring(NumberAfter(bound.text, "\"process_id\":")) + L".png";
    Host().WaitForEvent(id, "\"" + param + "\"");
  }

  /// What the editor has drawn. Null when there is no whole PNG file of it.
  std::unique_ptr<Gdiplus::Bitmap> Snapshot() const {
    std::unique_ptr<Gdiplus::Bitmap> bitmap;
    EXPECT_TRUE(WaitFor([&] {
      const std::string bytes = ReadFileBytes(m_snapshot);
      if (bytes.starts_with("\x89PNG\r\n\x1A\n")) {
        bitmap = Decode(bytes);
      }
      return bitmap != nullptr;
    })) << "no snapshot "
        << Utf8(m_snapshot);
    return bitmap;
  }

  static Gdiplus::Color Middle(Gdiplus::Bitmap& bitmap, UINT statusHeight) {
    return ColorAt(bitmap, bitmap.GetWidth() / 2, (bitmap.GetHeight() - statusHeight) / 2);
  }

  const example::DrawingSession m_drawing;
  std::wstring m_snapshot;
};

class EditorPictures : public Editor, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(EditorPictures, APictureIsDrawnInItsColours) {
  const std::wstring name = GetParam();
  Folder().Add(L"pictures\\" + name);
  const std::wstring path = Folder().Path() + name;
  OpenUntil(path, "picture_shown");
  const std::unique_ptr<Gdiplus::Bitmap> snapshot = Snapshot();
  const std::unique_ptr<Gdiplus::Bitmap> picture = Decode(ReadFileBytes(path));
  ASSERT_NE(snapshot, nullptr);
  ASSERT_NE(picture, nullptr);
  const Gdiplus::Color drawn = Middle(*snapshot, kStatusHeight);
  const Gdiplus::Color ground = ColorAt(*snapshot, 1, 1);
  EXPECT_LE(Distance(drawn, Middle(*picture, 0)), kNear) << Text(drawn) << " for " << Text(Middle(*picture, 0));
  EXPECT_GT(Distance(drawn, ground), kNear) << Text(drawn) << " on " << Text(ground);
}

INSTANTIATE_TEST_SUITE_P(Formats, EditorPictures,
                         ::testing::Values(L"mountain-lake.png", L"hills-at-dusk.jpg", L"night-desert.gif",
                                           L"lone-tree.bmp", L"sailing-boat.tif"),
                         [](const ::testing::TestParamInfo<const wchar_t*>& file) {
                           const std::wstring name = file.param;
                           return Utf8(name.substr(name.find(L'.') + 1));
                         });

TEST_F(Editor, AFileThatIsNoPictureIsReportedAndNotShown) {
  const std::wstring path = Folder().Path() + L"broken.png";
  WriteFileBytes(path, "\x89PNG\r\n\x1A\n and no more");
  OpenUntil(path, "open_pic_fail");
  EXPECT_NE(Snapshot(), nullptr);
  EXPECT_EQ(Host().CountEvents(1, "\"picture_shown\""), 0U);
}

} // namespace
