// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "outputlevel.h"

#include <QHash>
#include <QString>

#include <mutex>

struct pa_context;
struct pa_server_info;
struct pa_sink_info;
struct pa_threaded_mainloop;
struct pa_time_event;
struct pa_mainloop_api;
struct timeval;

// Keeps the volume and mute state of every output of the sound server (PulseAudio,
// or PipeWire through its PulseAudio server) and which output is the default.
// A thread of the server's client library receives the server's change events
// and updates the state, so that reading it when a sound starts only takes a
// lock and never waits for the server. Without a server everything is unknown;
// the thread tries to connect again every quarter of a second, so a server that starts or
// comes back is followed from then on.
class OutputMonitor
{
public:
    OutputMonitor();
    ~OutputMonitor();
    OutputMonitor(const OutputMonitor &) = delete;
    OutputMonitor &operator=(const OutputMonitor &) = delete;

    // The state of the output of that name, or of the default output when the
    // server has none of that name.
    OutputLevel level(const QString &device) const;

private:
    void connectToServer();
    void retryLater();
    void forget();
    static void stateChanged(pa_context *context, void *self);
    static void eventArrived(pa_context *context, int type, unsigned int index, void *self);
    static void serverInfo(pa_context *context, const pa_server_info *info, void *self);
    static void sinkInfo(pa_context *context, const pa_sink_info *info, int last, void *self);
    static void retry(pa_mainloop_api *api, pa_time_event *event, const timeval *, void *self);

    pa_threaded_mainloop *loop = nullptr;
    pa_context *context = nullptr;
    pa_time_event *retryEvent = nullptr;

    mutable std::mutex mutex; // guards what follows
    QHash<QString, OutputLevel> sinks;
    QHash<unsigned int, QString> sinkNames; // by the server's index, for removals
    QString defaultSink;
};
