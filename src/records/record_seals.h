#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

class QProcess;
class QSocketNotifier;
class QTimer;

// The sealing of record lines: every line the workstation writes to a record file (data files,
// signature files, audit trails, alarm logs) is handed, once it is on the disk, to the sealing
// helper, which runs with an account of its own and keeps the seals where the workstation's
// accounts cannot write. The helper is started once and fed over its pipe; nothing here waits
// for it. Lines it has not answered go again to the next helper started after it stops; while
// it is missing or refusing, lines are written as ever and the helper records the lines it never
// heard of as a gap at its next seal.
class SealClient : public QObject {
    Q_OBJECT
public:
    // The helper's program; it is started at once and again a while after it stops.
    explicit SealClient(QString helper, QObject* parent = nullptr);
    ~SealClient() override;

    bool sealing() const { return m_ready; }
    // Whether sealing works has been found out once, either way.
    bool announced() const { return m_announced; }
    // One line (its bytes without the line end), line n from 1 of the record file named as the
    // store knows it (relative to the application folder, in UTF-8 as hex).
    void seal(const QByteArray& nameHex, qint64 n, const QByteArray& line);
    // Lines handed over and not yet answered, after reading what the helper has said.
    int pending();
    // The helper's process id, 0 while none runs.
    qint64 helperPid() const;
    void setRestartMs(int ms);
    // How long a helper may leave lines unanswered before it is taken for hung.
    void setAnswerMs(int ms);

    static constexpr int kRestartMs = 5000;

signals:
    // Sealing began to work, or stopped; why, when it stopped.
    void sealingChanged(bool on, const QString& why);

private:
    void start();
    void readAnswers();
    void stopped(const QString& why);
    // Hands requests to the helper, in order; what its line cannot take yet waits.
    void send(const QByteArray& request);
    void closeLine();
    // Asks the helper to end its round now and read what its pipe holds.
    bool endRound();

    QString m_helper;
    QProcess* m_process = nullptr;
    QTimer* m_restart;
    QTimer* m_watch;
    bool m_ready = false;
    // Said once whether sealing works, then at each change.
    bool m_announced = false;
    // The requests handed over, in order, until the helper answers them.
    QList<QByteArray> m_unanswered;
    // The pipe that is the helper's standard input, and what it has not yet taken.
    int m_line = -1;
    QSocketNotifier* m_lineFree = nullptr;
    QByteArray m_outgoing;
    // The pipe was found full since the helper was last asked to end its round.
    bool m_flooded = false;
    // The pipe of the helper's answers, and what has come up it and is not yet a whole line.
    int m_answers = -1;
    QSocketNotifier* m_answered = nullptr;
    QByteArray m_incoming;
    int m_sinceRead = 0; // lines handed over since the answers were last read
};

// The client lines go to; none (the start, the tests' default) leaves records unsealed.
void installSealClient(SealClient* client);
SealClient* sealClient();

// Called by the record writers for each line on the disk: its file and bytes without the line
// end. The line's number is counted per file from what the file held when first seen.
void sealWrittenLine(const QString& path, const QByteArray& line);
// Forgets the counts (a test's fresh folder).
void resetRecordSeals();
