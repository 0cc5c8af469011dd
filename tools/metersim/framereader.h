#pragma once

#include <QByteArray>
#include <QObject>
#include <QTimer>
#include <optional>

// Cuts the byte stream of an RTU line into request frames with a correct CRC. Frame length comes
// from the function code where it tells; otherwise, and to resynchronise after garbage, a frame
// ends at the silence of 3.5 character times.
class FrameReader : public QObject
{
    Q_OBJECT

public:
    explicit FrameReader(QObject *parent = nullptr);

    void feed(const QByteArray &bytes);
    // The line has been quiet for 3.5 characters: what is buffered ends here. The reader's own
    // timer calls it; a caller that knows the line went quiet (the fuzz target) may as well.
    void onSilence();

signals:
    void frameReceived(const QByteArray &frame);

private:
    std::optional<qsizetype> expectedLength() const;
    void extractFrames();
    void discardUntilSilence();

    QByteArray _buffer;
    QTimer _silence;
    bool _discarding = false;
};
