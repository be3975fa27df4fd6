#ifndef MODEL_STAGE_P_H
#define MODEL_STAGE_P_H

// A stage of the software model's pipeline (model_stage.cpp): the thread
// that does its work and the bounded queue of frames waiting for it. Not
// installed.

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>

#include "hi_common_vb.h"
#include "hi_common_video.h"

struct VxState;

// A model thread (virtual sensor, VPSS group, encoder, decoder). It runs
// until `stop` is set under the model's lock; whoever sets it joins the
// thread with the lock let go.
struct VxWorker {
    std::thread thread;
    bool stop = false;
};

// One frame held by a queue or a user: the frame record as handed out and
// the block it lives in (one reference on that block).
struct VxFrameRef {
    hi_video_frame_info info{};
    hi_vb_blk blk = HI_VB_INVALID_HANDLE;
};

// A bounded queue of frames; `dropped` counts frames that found it full.
struct VxFrameQueue {
    std::deque<VxFrameRef> frames;
    hi_u64 dropped = 0;
};

// A VI pipe, a VPSS group or an encoder channel as a stage: its thread and
// the frames waiting at its input (a VI pipe's input is its sensor, so its
// queue stays empty). Everything but the thread's own work runs under the
// model's lock.
class VxStage
{
public:
    // Frames a stage keeps waiting at its input, as the hardware's queue.
    static const size_t kDepth = 4;

    VxFrameQueue input;

    bool running() const { return m_worker != nullptr; }
    bool full() const { return input.frames.size() >= kDepth; }

    // Starts the thread, fn(id, worker), unless it runs.
    void start(void (*fn)(int, VxWorker *), int id);
    // Stops the thread: the frames still waiting go back to their pools,
    // then the thread is joined with @p lock let go. The stage may be gone
    // when this returns (the model can be reset meanwhile).
    void stop(VxState &s, std::unique_lock<std::mutex> &lock);
    // A frame from a binding for receiver @p receiver: queued with one more
    // holder, or lost when the queue is full (counted in input.dropped and
    // the model's bind drops). True when queued.
    bool offer(VxState &s, const std::tuple<int, int, int> &receiver, const VxFrameRef &frame);
    // A frame the user sent, whose holder the caller took for the stage.
    void push(const VxFrameRef &frame);
    // For the thread: waits until a frame waits and @p ready allows taking
    // it, or until @p worker stops (false). The frame's holder passes to
    // the caller.
    bool next(std::unique_lock<std::mutex> &lock, VxWorker *worker, const std::function<bool()> &ready,
              VxFrameRef *out);

private:
    std::unique_ptr<VxWorker> m_worker;
};

#endif // MODEL_STAGE_P_H
