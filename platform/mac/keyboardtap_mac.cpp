#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>

#include "platform/keyboardtap.h"

namespace {

constexpr CGEventMask kKeyEventsMask = CGEventMaskBit(kCGEventKeyDown) |
                                       CGEventMaskBit(kCGEventKeyUp) |
                                       CGEventMaskBit(kCGEventFlagsChanged);

HookEventType eventType(CGEventType type)
{
    switch (type) {
    case kCGEventKeyDown:
        return HookEventType::KeyDown;
    case kCGEventKeyUp:
        return HookEventType::KeyUp;
    case kCGEventFlagsChanged:
        return HookEventType::FlagsChanged;
    case kCGEventTapDisabledByTimeout:
        return HookEventType::DisabledByTimeout;
    case kCGEventTapDisabledByUserInput:
        return HookEventType::DisabledByUserInput;
    default:
        return HookEventType::Other;
    }
}

class SessionEventTap : public KeyboardTap
{
public:
    explicit SessionEventTap(Handler handler) : m_handler(std::move(handler)) {}

    ~SessionEventTap() override
    {
        if (m_tap)
            CGEventTapEnable(m_tap, false);
        if (m_source) {
            CFRunLoopRemoveSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
            CFRelease(m_source);
        }
        if (m_tap)
            CFRelease(m_tap);
    }

    bool create(QString *error)
    {
        m_tap =
            CGEventTapCreate(kCGSessionEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault,
                             kKeyEventsMask, &SessionEventTap::callback, this);
        if (!m_tap) {
            if (error)
                *error = QStringLiteral("CGEventTapCreate failed");
            return false;
        }
        m_source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, m_tap, 0);
        if (!m_source) {
            if (error)
                *error = QStringLiteral("CFMachPortCreateRunLoopSource failed");
            return false;
        }
        CFRunLoopAddSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
        CGEventTapEnable(m_tap, true);
        return true;
    }

    bool isEnabled() const override { return m_tap && CGEventTapIsEnabled(m_tap); }
    KeyboardGrabStatus setEnabled(bool enabled) override
    {
        if (!m_tap)
            return enabled ? KeyboardGrabStatus::Unavailable : KeyboardGrabStatus::Success;
        CGEventTapEnable(m_tap, enabled);
        return !enabled || CGEventTapIsEnabled(m_tap) ? KeyboardGrabStatus::Success
                                                      : KeyboardGrabStatus::Unavailable;
    }

private:
    static CGEventRef callback(CGEventTapProxy, CGEventType type, CGEventRef event, void *self)
    {
        auto *tap = static_cast<SessionEventTap *>(self);
        const int keyCode = int(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
        const quint64 flags = quint64(CGEventGetFlags(event));
        return tap->m_handler(eventType(type), keyCode, flags) ? nullptr : event;
    }

    Handler m_handler;
    CFMachPortRef m_tap = nullptr;
    CFRunLoopSourceRef m_source = nullptr;
};

} // namespace

std::unique_ptr<KeyboardTap> createKeyboardTap(QWindow *, KeyboardTap::Handler handler,
                                               QString *error)
{
    auto tap = std::make_unique<SessionEventTap>(std::move(handler));
    if (!tap->create(error))
        return nullptr;
    return tap;
}

bool isAccessibilityTrusted()
{
    return AXIsProcessTrusted();
}

bool requestAccessibilityTrust()
{
    CFMutableDictionaryRef options = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(options, kAXTrustedCheckOptionPrompt, kCFBooleanTrue);
    const bool trusted = AXIsProcessTrustedWithOptions(options);
    CFRelease(options);
    return trusted;
}
