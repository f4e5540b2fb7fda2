#include "hdr_scene.h"

#include <png.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>

#include "lumivantor/lumivantor.h"

namespace lvtest {

bool read_png_rgb8(const std::string &path, int &width, int &height,
                   std::vector<unsigned char> &pixels) {
    png_image img;
    std::memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&img, path.c_str())) return false;
    img.format = PNG_FORMAT_RGB;
    pixels.resize(PNG_IMAGE_SIZE(img));
    if (!png_image_finish_read(&img, nullptr, pixels.data(), 0, nullptr)) return false;
    width = static_cast<int>(img.width);
    height = static_cast<int>(img.height);
    return true;
}

bool write_png_rgb(const std::string &path, int width, int height, int bits, const void *pixels) {
    png_image img;
    std::memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    img.width = static_cast<png_uint_32>(width);
    img.height = static_cast<png_uint_32>(height);
    img.format = bits == 16 ? PNG_FORMAT_LINEAR_RGB : PNG_FORMAT_RGB;
    return png_image_write_to_file(&img, path.c_str(), 0, pixels, 0, nullptr) != 0;
}

std::vector<unsigned char> floats_to_rgbe(int width, int height, const float *rgb) {
    std::vector<unsigned char> out(static_cast<size_t>(4) * width * height, 0);
    for (int y = 0; y < height; ++y) {
        unsigned char *row = out.data() + static_cast<size_t>(4) * width * y;
        for (int x = 0; x < width; ++x) {
            const float *px = rgb + 3 * (static_cast<size_t>(width) * y + x);
            const float top = std::fmax(px[0], std::fmax(px[1], px[2]));
            if (!(top > 1e-32f)) continue;
            int e;
            const float scale = std::frexp(top, &e) * 256.0f / top;
            for (int c = 0; c < 3; ++c)
                row[c * width + x] = static_cast<unsigned char>(std::fmax(px[c], 0.0f) * scale);
            row[3 * width + x] = static_cast<unsigned char>(e + 128);
        }
    }
    return out;
}

HdrScene synthetic_scene(int width, int height) {
    HdrScene s;
    s.width = width;
    s.height = height;
    s.rgb.resize(static_cast<size_t>(3) * width * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // Twelve stops left to right, hue varying down the rows, a black corner.
            const float lum = std::exp2(12.0f * x / std::max(width - 1, 1) - 6.0f);
            const float h = 6.2831853f * y / std::max(height, 1);
            float *px = &s.rgb[3 * (static_cast<size_t>(width) * y + x)];
            px[0] = lum * (1.0f + 0.6f * std::cos(h));
            px[1] = lum * (1.0f + 0.6f * std::cos(h - 2.094f));
            px[2] = lum * (1.0f + 0.6f * std::cos(h + 2.094f));
            if (x < width / 8 && y < height / 8) px[0] = px[1] = px[2] = 0.0f;
        }
    s.rgbe = floats_to_rgbe(width, height, s.rgb.data());
    return s;
}

HdrScene street_scene() {
    const std::string dir = std::string(LV_DATA_DIR) + "/street/";
    std::ifstream list(dir + "exposures.txt");
    std::vector<std::pair<std::string, double>> shots;
    for (std::string line; std::getline(list, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        std::string name;
        double t;
        if (in >> name >> t) shots.emplace_back(name, t);
    }
    HdrScene s;
    if (shots.empty()) return s;

    // The library's own merge, with the exposure times as factors.
    std::vector<unsigned char> bracket;
    std::vector<float> factors;
    for (const auto &[name, seconds] : shots) {
        int w, h;
        std::vector<unsigned char> px;
        if (!read_png_rgb8(dir + name, w, h, px)) return HdrScene{};
        if (bracket.empty()) {
            s.width = w;
            s.height = h;
        }
        if (w != s.width || h != s.height) return HdrScene{};
        bracket.insert(bracket.end(), px.begin(), px.end());
        factors.push_back(static_cast<float>(seconds));
    }
    const int n = static_cast<int>(shots.size());
    std::vector<float> curve(256);
    float stats[3];
    s.rgbe.resize(static_cast<size_t>(4) * s.width * s.height);
    if (lv_hdr_merge(nullptr, 0, n, s.width, s.height, 3, 8, 0, -1.0f, curve.data(), factors.data(),
                     bracket.data(), stats, s.rgbe.data()) != s.height)
        return HdrScene{};
    // The same pixels as floats, exactly the RGBE values.
    float table[256];
    exp_lut(table, -8);
    s.rgb.resize(static_cast<size_t>(3) * s.width * s.height);
    for (int y = 0; y < s.height; ++y) {
        const unsigned char *row = &s.rgbe[static_cast<size_t>(4) * s.width * y];
        for (int x = 0; x < s.width; ++x)
            for (int c = 0; c < 3; ++c)
                s.rgb[3 * (static_cast<size_t>(y) * s.width + x) + c] =
                    row[c * s.width + x] * table[row[3 * s.width + x]];
    }
    s.real = true;
    return s;
}

} // namespace lvtest
