#include "console/audiopairing.h"

#include <algorithm>

namespace {

QString cameraHay(const CameraText &camera)
{
    return camera.description.toLower() + QLatin1Char(' ') + QString::fromUtf8(camera.id).toLower();
}

bool has(const QString &hay, const char *word)
{
    return hay.contains(QLatin1String(word));
}

bool saysUsb3(const QString &hay)
{
    return has(hay, "usb3") || has(hay, "usb 3");
}

bool saysAudio(const QString &hay)
{
    return has(hay, "audio") || has(hay, "digital");
}

} // namespace

bool isTkUsb3VideoCamera(const CameraText &camera)
{
    const QString hay = cameraHay(camera);
    return has(hay, "tk") && has(hay, "video") && saysUsb3(hay);
}

bool isLikelyUsbUacAudioInput(const AudioInputText &input)
{
    const QString hay =
        input.description.toLower() + QLatin1Char(' ') + QString::fromUtf8(input.id).toLower();
    return has(hay, "usb") && has(hay, "audio");
}

AudioPairing pairAudioInput(const CameraText &camera, const QList<CameraText> &boxCameras,
                            const QList<AudioInputText> &inputs, const QByteArray &boundId)
{
    AudioPairing pairing;
    if (!boundId.isEmpty()) {
        for (int i = 0; i < inputs.size(); ++i) {
            if (inputs[i].id == boundId) {
                pairing.rule = AudioPairing::Bound;
                pairing.candidates = {i};
                pairing.chosen = i;
                return pairing;
            }
        }
        pairing.boundInputMissing = true;
    }

    const QString hay = cameraHay(camera);
    const bool rule1 = isTkUsb3VideoCamera(camera);
    if (rule1) {
        pairing.rule = AudioPairing::TkUsb3;
        for (int i = 0; i < inputs.size(); ++i) {
            const QString audio = inputs[i].description.toLower();
            if (has(audio, "tk") && saysUsb3(audio) && saysAudio(audio))
                pairing.candidates << i;
        }
    } else if (has(hay, "usb") && has(hay, "video")) {
        pairing.rule = AudioPairing::UsbVideo;
        const bool tkCamera = has(hay, "tk");
        for (int i = 0; i < inputs.size(); ++i) {
            const QString audio = inputs[i].description.toLower();
            // A camera that is not the box never takes the box's sound.
            if (has(audio, "usb") && saysAudio(audio) && (tkCamera || !has(audio, "tk")))
                pairing.candidates << i;
        }
    }
    if (pairing.candidates.isEmpty())
        return pairing;

    pairing.chosen = pairing.candidates.first();
    // Identical boxes with nothing stored: the n-th box by id takes the n-th input by id.
    if (boundId.isEmpty() && pairing.candidates.size() >= 2 && rule1) {
        QList<QByteArray> cameraIds;
        for (const CameraText &box : boxCameras) {
            if (isTkUsb3VideoCamera(box))
                cameraIds << box.id;
        }
        std::sort(cameraIds.begin(), cameraIds.end());
        QList<int> byId = pairing.candidates;
        std::sort(byId.begin(), byId.end(),
                  [&inputs](int a, int b) { return inputs[a].id < inputs[b].id; });
        const int position = int(cameraIds.indexOf(camera.id));
        pairing.mappedByOrder = true;
        pairing.videoIndex = position < 0 ? 0 : position;
        pairing.audioIndex = pairing.videoIndex % int(byId.size());
        pairing.chosen = byId[pairing.audioIndex];
    }
    return pairing;
}
