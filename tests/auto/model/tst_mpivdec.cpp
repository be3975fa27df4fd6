#include <QtTest>

#include <set>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vdec.h"
#include "hi_mpi_vpss.h"
#include "mediaprobe.h"
#include "modeltest.h"
#include "vexatest.h"
#include "vx_mpi.h"
#include "vx_mpi_model.h"

// Decoder channels of the platform model: streams made by ffmpeg, sent one
// access unit at a time in the records the library's helper fills, and the
// pictures read back compared with ffmpeg's own decode.

static const hi_u32 kW = 160, kH = 120, kFrames = 10;

// The access units of an Annex B stream: each ends with one picture's slice
// (the test streams have one slice per picture).
static QList<QByteArray> accessUnits(const QByteArray &es, bool hevc)
{
    QList<int> starts;
    for (int i = 0; i + 3 < es.size(); ++i) {
        if (es[i] == 0 && es[i + 1] == 0 && es[i + 2] == 1) {
            starts << (i > 0 && es[i - 1] == 0 ? i - 1 : i);
            i += 2;
        }
    }
    QList<QByteArray> units;
    int from = starts.value(0, 0);
    for (int n = 0; n < starts.size(); ++n) {
        const int at = starts[n];
        const int head = es.indexOf(QByteArray("\x00\x00\x01", 3), at) + 3;
        const int type = hevc ? (uchar(es[head]) >> 1) & 0x3f : uchar(es[head]) & 0x1f;
        const bool slice = hevc ? type < 32 : (type >= 1 && type <= 5);
        const int end = n + 1 < starts.size() ? starts[n + 1] : es.size();
        if (slice) {
            units << es.mid(from, end - from);
            from = end;
        }
    }
    return units;
}

class TestMpiVdec : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg is needed to make and decode the streams");
    }
    void cleanup() { vx_model_reset(); }

    void decodesLikeFfmpeg_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QStringList>("encoder");
        QTest::newRow("h264") << int(HI_PT_H264) << QStringList{"-c:v", "libx264", "-f", "h264"};
        QTest::newRow("h265") << int(HI_PT_H265)
                              << QStringList{"-c:v", "libx265", "-x265-params", "log-level=none", "-f", "hevc"};
    }
    void decodesLikeFfmpeg()
    {
        QFETCH(int, type);
        QFETCH(QStringList, encoder);
        QTemporaryDir dir;
        const QString es = dir.filePath("in.es"), ref = dir.filePath("ref.nv21");
        QString error;
        QVERIFY2(MediaProbe::ffmpeg(QStringList{"-f", "lavfi", "-i", QString("testsrc=size=%1x%2:rate=25").arg(kW).arg(kH),
                                                "-frames:v", QString::number(kFrames), "-pix_fmt", "yuv420p"}
                                        + encoder + QStringList{es},
                                    &error),
                 qPrintable(error));
        QVERIFY2(MediaProbe::ffmpeg({"-i", es, "-f", "rawvideo", "-pix_fmt", "nv21", ref}, &error), qPrintable(error));
        QFile esFile(es), refFile(ref);
        QVERIFY(esFile.open(QIODevice::ReadOnly) && refFile.open(QIODevice::ReadOnly));
        const QList<QByteArray> units = accessUnits(esFile.readAll(), type == HI_PT_H265);
        const QByteArray expected = refFile.readAll();
        QCOMPARE(units.size(), int(kFrames));
        QCOMPARE(expected.size(), int(kW * kH * 3 / 2 * kFrames));

        QCOMPARE(ModelTest::boot(256 * kH * 3 / 2, 8), 0);
        const int freeAtStart = vx_model_vb_free_blocks(0);
        hi_vdec_chn_attr attr = {};
        attr.type = hi_payload_type(type);
        attr.mode = HI_VDEC_SEND_MODE_FRAME;
        attr.pic_width = kW;
        attr.pic_height = kH;
        attr.stream_buf_size = 1 << 20;
        attr.frame_buf_cnt = 4;
        QCOMPARE(hi_mpi_vdec_create_chn(0, &attr), 0);
        QCOMPARE(hi_mpi_vdec_create_chn(0, &attr), HI_ERR_VDEC_EXIST);
        hi_vdec_stream early = {};
        QCOMPARE(hi_mpi_vdec_send_stream(0, &early, 0), HI_ERR_VDEC_NOT_PERM);
        QCOMPARE(hi_mpi_vdec_start_recv_stream(0), 0);
        QCOMPARE(hi_mpi_vdec_destroy_chn(0), HI_ERR_VDEC_NOT_PERM);
        hi_video_frame_info info = {};
        QCOMPARE(hi_mpi_vdec_get_frame(0, &info, nullptr, 0), HI_ERR_VDEC_BUF_EMPTY);

        // Sending and fetching interleave: the user queue holds four pictures.
        std::set<hi_u64> ptsSeen;
        int got = 0;
        bool same = true;
        auto fetch = [&](hi_s32 wait) {
            hi_vdec_supplement_info supplement = {};
            while (got < int(kFrames) && hi_mpi_vdec_get_frame(0, &info, &supplement, wait) == HI_SUCCESS) {
                const hi_video_frame &f = info.video_frame;
                QCOMPARE(f.width, kW);
                QCOMPARE(f.height, kH);
                QCOMPARE(int(f.pixel_format), int(HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420));
                QCOMPARE(int(info.mod_id), int(HI_ID_VDEC));
                if (ModelTest::packed(f) != expected.mid(got * kW * kH * 3 / 2, kW * kH * 3 / 2))
                    same = false;
                ptsSeen.insert(f.pts);
                QCOMPARE(hi_mpi_vdec_release_frame(0, &info), 0);
                QCOMPARE(hi_mpi_vdec_release_frame(0, &info), HI_ERR_VDEC_ILLEGAL_PARAM);
                ++got;
            }
        };
        for (int i = 0; i < units.size(); ++i) {
            VexaObject::Packet pkt;
            pkt.data = const_cast<char *>(units[i].constData());
            pkt.len = units[i].size();
            pkt.pts = 40000 * i;
            const hi_vdec_stream stream = vx_vdec_stream_init(pkt);
            QCOMPARE(hi_mpi_vdec_send_stream(0, &stream, -1), 0);
            fetch(0);
        }
        hi_vdec_stream end = {};
        end.end_of_stream = HI_TRUE;
        QCOMPARE(hi_mpi_vdec_send_stream(0, &end, -1), 0);
        fetch(10000);
        QCOMPARE(got, int(kFrames));
        QVERIFY2(same, "a decoded picture differs from ffmpeg's decode");
        // Every picture came out once with the timestamp its access unit carried.
        QCOMPARE(int(ptsSeen.size()), int(kFrames));
        QCOMPARE(*ptsSeen.rbegin(), hi_u64(40000 * (kFrames - 1)));

        hi_vdec_chn_status status = {};
        QCOMPARE(hi_mpi_vdec_query_status(0, &status), 0);
        QCOMPARE(status.recv_stream_frames, kFrames + 1);
        QCOMPARE(status.dec_stream_frames, kFrames);
        QCOMPARE(status.width, kW);
        QCOMPARE(hi_mpi_vdec_stop_recv_stream(0), 0);
        QCOMPARE(hi_mpi_vdec_destroy_chn(0), 0);
        QCOMPARE(hi_mpi_vdec_destroy_chn(0), HI_ERR_VDEC_UNEXIST);
        QCOMPARE(hi_mpi_vdec_send_stream(64, &end, 0), HI_ERR_VDEC_INVALID_CHN_ID);
        QCOMPARE(vx_model_vb_free_blocks(0), freeAtStart);
    }

    // Bound to a VPSS group, the decoder's pictures reach the group's channel
    // (scaled down) and not the decoder's own queue.
    void bindsToVpss()
    {
        QTemporaryDir dir;
        const QString es = dir.filePath("in.h264");
        QVERIFY(MediaProbe::ffmpeg({"-f", "lavfi", "-i", QString("testsrc=size=%1x%2:rate=25").arg(kW).arg(kH),
                                    "-frames:v", "3", "-pix_fmt", "yuv420p", "-c:v", "libx264", "-f", "h264", es}));
        QFile esFile(es);
        QVERIFY(esFile.open(QIODevice::ReadOnly));
        QByteArray bytes = esFile.readAll();

        QCOMPARE(ModelTest::boot(256 * kH * 3 / 2, 8), 0);
        const int freeAtStart = vx_model_vb_free_blocks(0);
        hi_vpss_grp_attr grp = {};
        grp.max_width = kW;
        grp.max_height = kH;
        grp.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
        grp.frame_rate = {-1, -1};
        QCOMPARE(hi_mpi_vpss_create_grp(0, &grp), 0);
        hi_vpss_chn_attr chn = {};
        QCOMPARE(hi_mpi_vpss_get_chn_attr(0, 0, &chn), 0);
        chn.width = 128;
        chn.height = 96;
        chn.chn_mode = HI_VPSS_CHN_MODE_USER;
        chn.depth = 4;
        QCOMPARE(hi_mpi_vpss_set_chn_attr(0, 0, &chn), 0);
        QCOMPARE(hi_mpi_vpss_enable_chn(0, 0), 0);
        QCOMPARE(hi_mpi_vpss_start_grp(0), 0);
        hi_vdec_chn_attr attr = {};
        attr.type = HI_PT_H264;
        attr.pic_width = kW;
        attr.pic_height = kH;
        attr.stream_buf_size = 1 << 20;
        attr.frame_buf_cnt = 4;
        QCOMPARE(hi_mpi_vdec_create_chn(1, &attr), 0);
        const hi_mpp_chn vdec = {HI_ID_VDEC, 0, 1}, vpss = {HI_ID_VPSS, 0, 0};
        QCOMPARE(hi_mpi_sys_bind(&vdec, &vpss), 0);
        QCOMPARE(hi_mpi_vdec_start_recv_stream(1), 0);
        // The whole byte stream in one piece, then its end.
        hi_vdec_stream stream = {};
        stream.addr = reinterpret_cast<hi_u8 *>(bytes.data());
        stream.len = hi_u32(bytes.size());
        stream.end_of_frame = HI_TRUE;
        stream.end_of_stream = HI_TRUE;
        QCOMPARE(hi_mpi_vdec_send_stream(1, &stream, -1), 0);
        for (int i = 0; i < 3; ++i) {
            hi_video_frame_info info = {};
            QCOMPARE(hi_mpi_vpss_get_chn_frame(0, 0, &info, 10000), 0);
            QCOMPARE(info.video_frame.width, 128u);
            QCOMPARE(hi_mpi_vpss_release_chn_frame(0, 0, &info), 0);
        }
        hi_video_frame_info info = {};
        QCOMPARE(hi_mpi_vdec_get_frame(1, &info, nullptr, 0), HI_ERR_VDEC_BUF_EMPTY);
        QCOMPARE(hi_mpi_vdec_stop_recv_stream(1), 0);
        QCOMPARE(hi_mpi_vdec_destroy_chn(1), 0);
        QCOMPARE(hi_mpi_sys_unbind(&vdec, &vpss), 0);
        QCOMPARE(hi_mpi_vpss_stop_grp(0), 0);
        QCOMPARE(hi_mpi_vpss_destroy_grp(0), 0);
        QCOMPARE(vx_model_vb_free_blocks(0), freeAtStart);
    }
};

QTEST_GUILESS_MAIN(TestMpiVdec)
#include "tst_mpivdec.moc"
