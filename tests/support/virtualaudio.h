#pragma once

// The simulated boxes' sound for a test: a private sound server (scripts/virtual-audio.sh) with one
// "TK USB3 Audio" input per box carrying a tone (box N: 440 Hz times N) and a null speaker as the
// default output. Started before the application object, so that the toolkit connects to it.
// Header-only; tests define TAVROKVM_SOURCE_DIR.

#include <QByteArray>
#include <QElapsedTimer>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QTest>
#include <QVector>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

class VirtualAudio
{
public:
    ~VirtualAudio() { stop(); }

    // False when the server could not start (no pulseaudio): the caller skips what needs sound.
    bool start(int boxes)
    {
        if (!m_dir.isValid())
            return false;
        const QByteArray command = QByteArray(TAVROKVM_SOURCE_DIR "/scripts/virtual-audio.sh") +
                                   " start '" + m_dir.path().toLocal8Bit() + "' " +
                                   QByteArray::number(boxes);
        std::FILE *pipe = popen(command.constData(), "r");
        if (!pipe)
            return false;
        char line[512] = {};
        const bool read = std::fgets(line, sizeof line, pipe) != nullptr;
        const int status = pclose(pipe);
        if (!read || status != 0)
            return false;
        m_server = QByteArray(line).trimmed();
        qputenv("PULSE_SERVER", m_server);
        m_running = true;
        return true;
    }

    void stop()
    {
        if (!m_running)
            return;
        m_running = false;
        const QByteArray command = QByteArray(TAVROKVM_SOURCE_DIR "/scripts/virtual-audio.sh") +
                                   " stop '" + m_dir.path().toLocal8Bit() + "'";
        if (std::system(command.constData()) != 0)
            std::fprintf(stderr, "virtual audio: stopping the server failed\n");
    }

    // Holds box N's tone back, or lets it go on: a held input delivers nothing at all, as a sound
    // interface that stalls.
    bool holdTone(int box, bool held)
    {
        return QProcess::execute(
                   QStringLiteral("pkill"),
                   {held ? QStringLiteral("-STOP") : QStringLiteral("-CONT"), QStringLiteral("-f"),
                    m_dir.path() + QStringLiteral("/tone") + QString::number(box)}) == 0;
    }

    // Unloads the speaker (the only output the console may use); true when it went.
    bool removeSpeaker()
    {
        const QByteArray modules = pactlOutput({"list", "short", "modules"});
        for (const QByteArray &line : modules.split('\n')) {
            if (line.contains("sink_name=speaker "))
                return !pactlOutput(
                            {"unload-module", QString::fromLatin1(line.split('\t').value(0))})
                            .isNull();
        }
        return false;
    }

    // `ms` of what the speaker plays, read from its monitor: mono, 16 bits, 48 kHz. The caller's
    // event loop keeps running meanwhile (frames, and the console's copy of the sound).
    QVector<qint16> recordSpeaker(int ms)
    {
        QProcess parec;
        parec.start(QStringLiteral("parec"), {"-d", "speaker.monitor", "--raw", "--format=s16le",
                                              "--rate=48000", "--channels=1", "--latency-msec=20"});
        if (!parec.waitForStarted(5000))
            return {};
        QByteArray bytes;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < ms) {
            QTest::qWait(20);
            bytes += parec.readAllStandardOutput();
        }
        parec.kill();
        parec.waitForFinished(2000);
        QVector<qint16> samples(int(bytes.size() / 2));
        if (!samples.isEmpty()) // nothing recorded: no buffer to copy into
            std::memcpy(samples.data(), bytes.constData(), size_t(samples.size()) * 2);
        return samples;
    }

    // Strength of `frequency` in the samples (Goertzel), relative to their total power: near 1 for
    // a pure tone at that frequency, near 0 when it is absent or the samples are silent.
    static double toneShare(const QVector<qint16> &samples, double frequency)
    {
        if (samples.isEmpty())
            return 0;
        const double w = 2 * M_PI * frequency / 48000.0;
        const double c = 2 * std::cos(w);
        double s1 = 0, s2 = 0, energy = 0;
        for (qint16 sample : samples) {
            const double s0 = sample + c * s1 - s2;
            s2 = s1;
            s1 = s0;
            energy += double(sample) * sample;
        }
        const double power = s1 * s1 + s2 * s2 - c * s1 * s2;
        return energy > 0 ? 2 * power / (energy * samples.size()) : 0;
    }

private:
    // pactl's output against the server; a null array when it failed.
    static QByteArray pactlOutput(const QStringList &arguments)
    {
        QProcess process;
        process.start(QStringLiteral("pactl"), arguments);
        if (!process.waitForFinished(5000) || process.exitCode() != 0)
            return QByteArray();
        const QByteArray output = process.readAllStandardOutput();
        return output.isNull() ? QByteArray("") : output;
    }

    QTemporaryDir m_dir;
    QByteArray m_server;
    bool m_running = false;
};
