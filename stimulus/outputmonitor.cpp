// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputmonitor.h"

#include <pulse/pulseaudio.h>

namespace
{
const pa_usec_t retryUs = 250000;

// Cut off first, so that closing it reports nothing.
void release(pa_context *context)
{
    if (!context)
        return;
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
}
} // namespace

OutputMonitor::OutputMonitor()
{
    loop = pa_threaded_mainloop_new();
    if (!loop)
        return;
    connectToServer();
    pa_threaded_mainloop_start(loop);
}

OutputMonitor::~OutputMonitor()
{
    if (!loop)
        return;
    // Once the thread has stopped no callback runs, so the rest needs no lock.
    pa_threaded_mainloop_stop(loop);
    if (retryEvent)
        pa_threaded_mainloop_get_api(loop)->time_free(retryEvent);
    release(context);
    pa_threaded_mainloop_free(loop);
}

OutputLevel OutputMonitor::level(const QString &device) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    const auto it = sinks.constFind(device);
    return it != sinks.constEnd() ? *it : sinks.value(defaultSink);
}

// Runs before the thread starts or on it.
void OutputMonitor::connectToServer()
{
    release(context);
    context = pa_context_new(pa_threaded_mainloop_get_api(loop), "Veltrane output monitor");
    if (!context)
        return retryLater();
    pa_context_set_state_callback(context, &OutputMonitor::stateChanged, this);
    pa_context_set_subscribe_callback(
        context,
        [](pa_context *c, pa_subscription_event_type_t type, uint32_t index, void *self) {
            eventArrived(c, type, index, self);
        },
        this);
    // Never starts a server: the program plays through the one that runs, if any.
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        retryLater();
}

// A context that failed is replaced from the timer, never inside its own callback.
void OutputMonitor::retryLater()
{
    forget();
    if (retryEvent)
        return;
    timeval when;
    pa_timeval_add(pa_gettimeofday(&when), retryUs);
    retryEvent = pa_threaded_mainloop_get_api(loop)->time_new(pa_threaded_mainloop_get_api(loop),
                                                              &when, &OutputMonitor::retry, this);
}

void OutputMonitor::retry(pa_mainloop_api *api, pa_time_event *event, const timeval *, void *self)
{
    auto *monitor = static_cast<OutputMonitor *>(self);
    api->time_free(event);
    monitor->retryEvent = nullptr;
    monitor->connectToServer();
}

void OutputMonitor::forget()
{
    const std::lock_guard<std::mutex> lock(mutex);
    sinks.clear();
    sinkNames.clear();
    defaultSink.clear();
}

void OutputMonitor::stateChanged(pa_context *context, void *self)
{
    auto *monitor = static_cast<OutputMonitor *>(self);
    switch (pa_context_get_state(context)) {
    case PA_CONTEXT_READY: {
        const auto facilities = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK |
                                                                    PA_SUBSCRIPTION_MASK_SERVER);
        pa_operation_unref(pa_context_subscribe(context, facilities, nullptr, nullptr));
        pa_operation_unref(pa_context_get_server_info(context, &OutputMonitor::serverInfo, self));
        pa_operation_unref(pa_context_get_sink_info_list(context, &OutputMonitor::sinkInfo, self));
        break;
    }
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        monitor->retryLater();
        break;
    default:
        break;
    }
}

void OutputMonitor::eventArrived(pa_context *context, int type, unsigned int index, void *self)
{
    auto *monitor = static_cast<OutputMonitor *>(self);
    const int facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const int change = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    if (facility == PA_SUBSCRIPTION_EVENT_SERVER) {
        pa_operation_unref(pa_context_get_server_info(context, &OutputMonitor::serverInfo, self));
    } else if (facility == PA_SUBSCRIPTION_EVENT_SINK && change == PA_SUBSCRIPTION_EVENT_REMOVE) {
        const std::lock_guard<std::mutex> lock(monitor->mutex);
        monitor->sinks.remove(monitor->sinkNames.take(index));
    } else if (facility == PA_SUBSCRIPTION_EVENT_SINK) {
        pa_operation_unref(
            pa_context_get_sink_info_by_index(context, index, &OutputMonitor::sinkInfo, self));
    }
}

void OutputMonitor::serverInfo(pa_context *, const pa_server_info *info, void *self)
{
    auto *monitor = static_cast<OutputMonitor *>(self);
    if (!info)
        return;
    const std::lock_guard<std::mutex> lock(monitor->mutex);
    monitor->defaultSink = QString::fromUtf8(info->default_sink_name);
}

void OutputMonitor::sinkInfo(pa_context *, const pa_sink_info *info, int last, void *self)
{
    auto *monitor = static_cast<OutputMonitor *>(self);
    if (last || !info)
        return;
    OutputLevel level;
    level.known = true;
    const pa_volume_t average = pa_cvolume_avg(&info->volume);
    // Rounded to whole percent as the server's own tools (pactl) show it.
    level.percent = static_cast<int>((static_cast<quint64>(average) * 100 + PA_VOLUME_NORM / 2) /
                                     PA_VOLUME_NORM);
    if ((info->flags & PA_SINK_DECIBEL_VOLUME) && average != PA_VOLUME_MUTED)
        level.decibels = pa_sw_volume_to_dB(average);
    level.muted = info->mute != 0;
    const QString name = QString::fromUtf8(info->name);
    const std::lock_guard<std::mutex> lock(monitor->mutex);
    monitor->sinks.insert(name, level);
    monitor->sinkNames.insert(info->index, name);
}
