#ifndef I_MESSENGER_H
#define I_MESSENGER_H

// The host's messenger, as far as plug-ins see it: the error codes it hands to
// the error callbacks of backend instructions.
class IMessenger
{
public:
    enum EnErrorCode {
        CeNoError = 0,
        CeUnknownInstruction,
        CeTargetMissing,
        CeInstructionRefused,
        CeTimeout,
        CeCommandFailed,
        _CeErrorCodeNbr
    };

    virtual ~IMessenger() = default;
};

#endif // I_MESSENGER_H
