#include "vexacapture.h"

#include <QDebug>

#include "hi_mpi_vi.h"
#include "vexaboard.h"
#include "vexahi.h"
#include "vexatee.h"

VexaCapture::VexaCapture(QObject *parent)
    : VexaObject(parent)
{
    directInvokeNames << "stats";
}

VexaCapture::~VexaCapture()
{
    teardown();
}

QVariant VexaCapture::stats()
{
    return QVariantMap{{"tee", teeId.loadRelaxed()}, {"width", width.loadRelaxed()}, {"height", height.loadRelaxed()},
                       {"fps", fps.loadRelaxed()}};
}

QString VexaCapture::checkSetup(QVariantMap s, QVariantMap)
{
    const int w = s.value("width", 1920).toInt(), h = s.value("height", 1080).toInt();
    if (w < 64 || h < 64 || w > 8192 || h > 8192 || w % 2 || h % 2)
        return QStringLiteral("the capture cannot take %1x%2 pictures (even sizes from 64x64 to 8192x8192)").arg(w).arg(h);
    const int f = s.value("fps", 30).toInt(), sensor = s.value("sensorFps", 30).toInt();
    if (f < 1 || sensor < 1 || sensor > 240 || f > sensor)
        return QStringLiteral("fps %1 is not between 1 and the sensor's %2").arg(f).arg(sensor);
    return QString();
}

void VexaCapture::onStart()
{
    const QString problem = checkSetup(settings, {});
    if (!problem.isEmpty()) {
        sendEvent("error", problem);
        return;
    }
    dev = settings.value("device", 0).toInt();
    width = settings.value("width", 1920).toInt();
    height = settings.value("height", 1080).toInt();
    fps = settings.value("fps", 30).toInt();
    const int sensor = settings.value("sensorFps", 30).toInt();
    const hi_u32 w = hi_u32(width.loadRelaxed()), h = hi_u32(height.loadRelaxed());

    hi_vi_dev_attr devAttr = {};
    devAttr.intf_mode = HI_VI_INTF_MODE_MIPI;
    devAttr.in_size = {w, h};
    hi_vi_pipe_attr pipeAttr = {};
    pipeAttr.size = {w, h};
    pipeAttr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    pipeAttr.frame_rate_ctrl = {-1, -1};
    hi_vi_chn_attr chnAttr = {};
    chnAttr.size = {w, h};
    chnAttr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    const int rate = fps.loadRelaxed();
    chnAttr.frame_rate_ctrl.src_frame_rate = rate < sensor ? sensor : -1;
    chnAttr.frame_rate_ctrl.dst_frame_rate = rate < sensor ? rate : -1;

    // The board's start order: device, device-to-pipe binding, pipe, channel.
    hi_s32 ret = hi_mpi_vi_set_dev_attr(dev, &devAttr);
    const char *step = "hi_mpi_vi_set_dev_attr";
    if (ret == 0 && (ret = hi_mpi_vi_enable_dev(dev)) != 0)
        step = "hi_mpi_vi_enable_dev";
    devEnabled = ret == 0;
    if (ret == 0 && (ret = hi_mpi_vi_bind(dev, dev)) != 0)
        step = "hi_mpi_vi_bind";
    if (ret == 0 && (ret = hi_mpi_vi_create_pipe(dev, &pipeAttr)) != 0)
        step = "hi_mpi_vi_create_pipe";
    pipeCreated = ret == 0;
    if (ret == 0 && (ret = hi_mpi_vi_set_chn_attr(dev, 0, &chnAttr)) != 0)
        step = "hi_mpi_vi_set_chn_attr";
    if (ret == 0 && (ret = hi_mpi_vi_enable_chn(dev, 0)) != 0)
        step = "hi_mpi_vi_enable_chn";
    chnEnabled = ret == 0;
    if (ret == 0 && (ret = hi_mpi_vi_start_pipe(dev)) != 0)
        step = "hi_mpi_vi_start_pipe";
    pipeStarted = ret == 0;
    if (ret != 0) {
        const QString msg = QStringLiteral("VI device %1: %2 failed with %3").arg(dev).arg(step).arg(QString::number(uint(ret), 16).prepend("0x"));
        qDebug("%s", qPrintable(msg));
        teardown();
        sendEvent("error", msg);
        return;
    }

    // The tee takes the channel's pictures; its groups are made as receivers ask.
    tee = VexaHi::newTee(HI_ID_VI, dev, 0);
    if (int(w) > tee->maxWidth || int(h) > tee->maxHeight) {
        tee->maxWidth = qMax(int(w), tee->maxWidth);
        tee->maxHeight = qMax(int(h), tee->maxHeight);
    }
    teeId = tee->getId();
    outInfoV.type = VexaBoard::PictureStream;
    outInfoV.params = VexaBoard::pictureParams(tee->getId(), int(w), int(h), rate);
    sendInfoV(outInfoV);
}

void VexaCapture::onStop()
{
    teardown();
    // Receivers learn that the tee is gone.
    if (outInfoV.type) {
        outInfoV = StreamInfo();
        sendInfoV(outInfoV);
    }
}

void VexaCapture::teardown()
{
    if (tee) {
        VexaBoard::releasePictureTee(tee);
        teeId = -1;
    }
    if (chnEnabled)
        hi_mpi_vi_disable_chn(dev, 0);
    if (pipeStarted)
        hi_mpi_vi_stop_pipe(dev);
    if (pipeCreated) {
        hi_mpi_vi_destroy_pipe(dev);
        hi_mpi_vi_unbind(dev, dev);
    }
    if (devEnabled)
        hi_mpi_vi_disable_dev(dev);
    chnEnabled = pipeStarted = pipeCreated = devEnabled = false;
}
