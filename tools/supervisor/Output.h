// What the supervisor writes to its standard output and its log, without ever waiting for whoever reads it.
#pragma once

#include <QByteArray>

#include <condition_variable>
#include <deque>
#include <mutex>

/// One stream, written by a thread of its own. What does not fit into its queue, because nobody reads, is lost and counted.
class Output {
public:
    /// Those of this process. They live as long as it does.
    static Output& log();      ///< standard error
    static Output& progress(); ///< standard output

    /// From now on everything that is logged, by whichever library, goes through log().
    static void takeOverLog();

    /// Thread: any. Returns at once.
    void write(const QByteArray& text);

    /// Gives the texts that wait some time to be read, for the end of the process.
    void flush(int longestMs);

private:
    struct Text {
        QByteArray bytes;
        int lines; // that it tells of
    };

    explicit Output(int descriptor);
    void run();
    Text next();
    void add(const Text& text);
    void addNoteOfLoss();

    const int m_descriptor;
    std::mutex m_mutex;
    std::condition_variable m_hasText;
    std::condition_variable m_isEmpty;
    std::deque<Text> m_texts; // the first one is being written
    int m_size = 0;           // of all, in bytes
    int m_lost = 0;           // lines, since that was last told
    bool m_isBroken = false;  // the last text could not be written
};
