#pragma once

// The file formats images are rendered into.
enum class VXImageFormat {
    PNG,  // lossless, with alpha
    TIFF, // LZW-compressed
};
