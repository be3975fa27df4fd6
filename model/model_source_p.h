#ifndef MODEL_SOURCE_P_H
#define MODEL_SOURCE_P_H

// Pictures a virtual sensor shows from outside the model: a media file
// decoded and looped, or a V4L2 camera (model_source.cpp). Not installed.

#include "model_pixels_p.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

class VxSensorSource
{
public:
    // Opens @p location: a media file, or with @p camera a V4L2 device
    // (empty: /dev/video0) asked for @p fps frames per second. Null, with
    // the reason in @p error, when it cannot be opened or has no video.
    static std::unique_ptr<VxSensorSource> open(const std::string &location, bool camera, int fps,
                                                std::string *error);
    ~VxSensorSource();
    VxSensorSource(const VxSensorSource &) = delete;
    VxSensorSource &operator=(const VxSensorSource &) = delete;

    // The file's frame rate (0 when it does not say).
    int frameRate() const { return m_fps; }
    // Takes the next picture: the file's next one (from the start again at
    // its end), the camera's newest. The last picture stays when none comes.
    void advance();
    // Draws the current picture scaled to @p dst, mirrored and flipped as
    // asked; @p slot names the output so that each keeps its own scaler.
    // Black before the first picture.
    void draw(int slot, const VxPicture &dst, bool mirror, bool flip);

private:
    VxSensorSource() = default;
    bool decodeOne();

    std::mutex m_mutex;
    AVFormatContext *m_format = nullptr;
    AVCodecContext *m_codec = nullptr;
    AVPacket *m_packet = nullptr;
    AVFrame *m_frame = nullptr;
    int m_stream = -1;
    int m_fps = 0;
    bool m_camera = false;
    bool m_havePicture = false;
    bool m_fresh = false;
    std::map<int, VxScaler> m_scalers;
};

#endif // MODEL_SOURCE_P_H
