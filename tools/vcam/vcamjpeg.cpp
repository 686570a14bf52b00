#include "vcamjpeg.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

namespace vcam {

namespace {

// libjpeg reports fatal errors through error_exit, which must not return: jump back to the
// encoder with the message. Nothing with a destructor lives between setjmp and the jump.
struct ErrorManager
{
    jpeg_error_mgr pub;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void errorExit(j_common_ptr cinfo)
{
    auto *err = reinterpret_cast<ErrorManager *>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

// Writes into a vector that grows as needed.
struct VectorDestination
{
    jpeg_destination_mgr pub;
    std::vector<std::uint8_t> *out;
};

void initDestination(j_compress_ptr cinfo)
{
    auto *dest = reinterpret_cast<VectorDestination *>(cinfo->dest);
    dest->out->resize(std::max<std::size_t>(dest->out->capacity(), 64 * 1024));
    dest->pub.next_output_byte = dest->out->data();
    dest->pub.free_in_buffer = dest->out->size();
}

boolean emptyOutputBuffer(j_compress_ptr cinfo)
{
    auto *dest = reinterpret_cast<VectorDestination *>(cinfo->dest);
    // libjpeg asks for more room only when the whole buffer is full.
    const std::size_t used = dest->out->size();
    dest->out->resize(used * 2);
    dest->pub.next_output_byte = dest->out->data() + used;
    dest->pub.free_in_buffer = dest->out->size() - used;
    return TRUE;
}

void termDestination(j_compress_ptr cinfo)
{
    auto *dest = reinterpret_cast<VectorDestination *>(cinfo->dest);
    dest->out->resize(dest->out->size() - dest->pub.free_in_buffer);
}

int roundUp(int value, int multiple)
{
    return (value + multiple - 1) / multiple * multiple;
}

} // namespace

int jpegLumaStride(int width)
{
    return roundUp(std::max(1, width), 16);
}

int jpegChromaStride(int width)
{
    return jpegLumaStride(width) / 2;
}

bool encodeJpeg(const Picture &picture, int quality, std::vector<std::uint8_t> &out,
                std::string &error)
{
    out.clear();
    if (picture.layout != Picture::I420 || picture.width <= 0 || picture.height <= 0 ||
        picture.strides[0] < jpegLumaStride(picture.width) ||
        picture.strides[1] < jpegChromaStride(picture.width) ||
        picture.strides[2] < jpegChromaStride(picture.width)) {
        error = "not an I420 picture with padded rows";
        return false;
    }

    jpeg_compress_struct cinfo;
    ErrorManager err;
    VectorDestination dest;
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = errorExit;
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&cinfo);
        out.clear();
        error = err.message;
        return false;
    }
    jpeg_create_compress(&cinfo);

    dest.pub.init_destination = initDestination;
    dest.pub.empty_output_buffer = emptyOutputBuffer;
    dest.pub.term_destination = termDestination;
    dest.out = &out;
    cinfo.dest = &dest.pub;

    cinfo.image_width = JDIMENSION(picture.width);
    cinfo.image_height = JDIMENSION(picture.height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&cinfo);
    jpeg_set_colorspace(&cinfo, JCS_YCbCr);
    jpeg_set_quality(&cinfo, std::clamp(quality, 1, 100), TRUE);
    // The planes go in as they are: no colour conversion, no resampling.
    cinfo.raw_data_in = TRUE;
    cinfo.dct_method = JDCT_IFAST;
    cinfo.comp_info[0].h_samp_factor = 2;
    cinfo.comp_info[0].v_samp_factor = 2;
    for (int c = 1; c < 3; ++c) {
        cinfo.comp_info[c].h_samp_factor = 1;
        cinfo.comp_info[c].v_samp_factor = 1;
    }
    jpeg_start_compress(&cinfo, TRUE);

    // One MCU row at a time: 16 luma rows and 8 of each chroma; rows past the bottom repeat the
    // last one.
    JSAMPROW yRows[16];
    JSAMPROW uRows[8];
    JSAMPROW vRows[8];
    JSAMPARRAY planes[3] = {yRows, uRows, vRows};
    const int lastRow = picture.height - 1;
    const int lastChromaRow = (picture.height + 1) / 2 - 1;
    while (cinfo.next_scanline < cinfo.image_height) {
        const int top = int(cinfo.next_scanline);
        for (int i = 0; i < 16; ++i)
            yRows[i] = picture.planes[0] + std::min(top + i, lastRow) * picture.strides[0];
        for (int i = 0; i < 8; ++i) {
            const int row = std::min(top / 2 + i, lastChromaRow);
            uRows[i] = picture.planes[1] + row * picture.strides[1];
            vRows[i] = picture.planes[2] + row * picture.strides[2];
        }
        jpeg_write_raw_data(&cinfo, planes, 16);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return true;
}

} // namespace vcam
