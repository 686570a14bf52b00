#include "platform/keyboardlayout.h"

// The toolkit's codes are already those the encoder expects.
int encoderKeyForPhysicalKey(int key)
{
    return key;
}
