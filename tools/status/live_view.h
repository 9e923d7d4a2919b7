// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

#include "output/terminal.h"

namespace lnkd {

// Shows text after text in the same place until somebody ends it. On a terminal it takes a screen
// of its own, which its end, or a Ctrl-Z, gives back; elsewhere the texts follow each other, an
// empty line between two. While it lives, SIGINT, SIGTERM and SIGHUP end it and not the process.
class LiveView {
  public:
    LiveView(const Terminal& terminal, std::chrono::milliseconds interval);
    ~LiveView();
    LiveView(const LiveView&) = delete;
    LiveView& operator=(const LiveView&) = delete;

    // Shows a text, as many lines as the terminal has, and waits for the interval, or until the
    // terminal has another size. False when it is to end: by a signal, or because nobody reads.
    bool show(const std::string& text);

  private:
    void enter();
    void leave();
    // Waits for the interval, a signal, or the reader's end; false for an end.
    bool wait();

    const Terminal& m_terminal;
    const std::chrono::milliseconds m_interval;
    bool m_isFirst = true;
};

}  // namespace lnkd
