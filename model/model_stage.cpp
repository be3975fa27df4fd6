// The plumbing every stage of the model's pipeline shares: starting and
// stopping its thread, frames arriving from bindings and from the user,
// and the thread taking them one at a time.

#include "model_stage_p.h"

#include "model_p.h"

const size_t VxStage::kDepth;

void VxStage::start(void (*fn)(int, VxWorker *), int id)
{
    if (m_worker)
        return;
    m_worker.reset(new VxWorker);
    m_worker->thread = std::thread(fn, id, m_worker.get());
}

void VxStage::stop(VxState &s, std::unique_lock<std::mutex> &lock)
{
    // The stage's owner says it no longer runs before stopping it, so no
    // frame arrives after these.
    vxUnrefAll(s, input.frames);
    vxStopWorker(lock, m_worker);
}

bool VxStage::offer(VxState &s, const std::tuple<int, int, int> &receiver, const VxFrameRef &frame)
{
    // A receiver that falls behind loses the newest frame, as the hardware does.
    if (full()) {
        ++input.dropped;
        ++s.bindDrops[receiver];
        return false;
    }
    if (!vxRef(s, frame.blk))
        return false;
    push(frame);
    return true;
}

void VxStage::push(const VxFrameRef &frame)
{
    input.frames.push_back(frame);
    vxModel().changed.notify_all();
}

bool VxStage::next(std::unique_lock<std::mutex> &lock, VxWorker *worker, const std::function<bool()> &ready,
                   VxFrameRef *out)
{
    vxModel().changed.wait(lock, [&] { return worker->stop || (!input.frames.empty() && ready()); });
    if (worker->stop)
        return false;
    *out = input.frames.front();
    input.frames.pop_front();
    vxModel().changed.notify_all(); // room for a waiting sender
    return true;
}
