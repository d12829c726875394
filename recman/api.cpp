// The C entry point of the record manager.
#include "recman/engine.h"
#include "recman/recman.h"

extern "C" __attribute__((visibility("default"))) int16_t BTRCALLID(uint16_t op, void* posBlock,
                                                                    void* dataBuf,
                                                                    uint32_t* dataLen, void* keyBuf,
                                                                    uint8_t keyLen, int8_t keyNum,
                                                                    const uint8_t* clientId) {
    return recman::Engine::Instance().Call(op, posBlock, dataBuf, dataLen, keyBuf, keyLen, keyNum,
                                           clientId);
}
