#include "platform/Screen.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <png.h>

#include <cstdio>
#include <memory>
#include <vector>

namespace tw::platform {
namespace {

struct DisplayCloser {
  void operator()(Display* display) const { XCloseDisplay(display); }
};
struct ImageDestroyer {
  void operator()(XImage* image) const { XDestroyImage(image); }
};
struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};

// The position and width of a colour channel inside a pixel, from its mask.
struct Channel {
  int shift = 0;
  int bits = 0;
  explicit Channel(unsigned long mask) {
    while (mask != 0 && (mask & 1) == 0) {
      mask >>= 1;
      ++shift;
    }
    while (mask & 1) {
      mask >>= 1;
      ++bits;
    }
  }
  png_byte Of(unsigned long pixel) const {
    if (bits == 0) return 0;
    const unsigned long value = (pixel >> shift) & ((1ul << bits) - 1);
    return static_cast<png_byte>(value * 255 / ((1ul << bits) - 1));
  }
};

bool WritePng(const std::string& path, int width, int height, const std::vector<png_byte>& rgb, std::string& error) {
  std::unique_ptr<FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    error = "cannot write " + path;
    return false;
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (png == nullptr || info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    error = "cannot encode the picture";
    return false;
  }
  png_init_io(png, file.get());
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8, PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < height; ++y) {
    png_write_row(png, const_cast<png_bytep>(&rgb[static_cast<size_t>(y) * width * 3]));
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

bool CaptureScreen(const std::string& display, const std::string& pngPath, std::string& error) {
  std::unique_ptr<Display, DisplayCloser> connection(XOpenDisplay(display.empty() ? nullptr : display.c_str()));
  if (!connection) {
    error = "cannot open the X display \"" + display + "\"";
    return false;
  }
  const Window root = DefaultRootWindow(connection.get());
  XWindowAttributes attributes{};
  XGetWindowAttributes(connection.get(), root, &attributes);
  std::unique_ptr<XImage, ImageDestroyer> image(
      XGetImage(connection.get(), root, 0, 0, attributes.width, attributes.height, AllPlanes, ZPixmap));
  if (!image) {
    error = "cannot read the screen";
    return false;
  }
  const Channel red(image->red_mask), green(image->green_mask), blue(image->blue_mask);
  std::vector<png_byte> rgb(static_cast<size_t>(attributes.width) * attributes.height * 3);
  size_t i = 0;
  for (int y = 0; y < attributes.height; ++y) {
    for (int x = 0; x < attributes.width; ++x) {
      const unsigned long pixel = XGetPixel(image.get(), x, y);
      rgb[i++] = red.Of(pixel);
      rgb[i++] = green.Of(pixel);
      rgb[i++] = blue.Of(pixel);
    }
  }
  return WritePng(pngPath, attributes.width, attributes.height, rgb, error);
}

}  // namespace tw::platform
