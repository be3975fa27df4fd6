// Decoder helpers.

#include "vx_mpi.h"

#include <cstring>

hi_vdec_stream vx_vdec_stream_init(VexaObject::Packet pkt)
{
    hi_vdec_stream stream;
    std::memset(&stream, 0, sizeof(stream));
    stream.addr = reinterpret_cast<hi_u8 *>(pkt.data);
    stream.len = static_cast<hi_u32>(pkt.len);
    const bool useAlt = pkt.altPts != pkt.pts && pkt.altPts != -1;
    stream.pts = static_cast<hi_u64>(useAlt ? pkt.altPts : pkt.pts);
    stream.end_of_frame = HI_TRUE;
    stream.end_of_stream = HI_FALSE;
    stream.need_display = HI_TRUE;
    return stream;
}
