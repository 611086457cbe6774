#pragma once

#include <portaudio.h>

/// Keeps what sound libraries print while devices are looked for away from standard error: ALSA names each plug-in that
/// a machine lacks, JACK each server that does not run. It becomes debug lines of the category "kestrix.audio". Before
/// PortAudio is initialised; any number of times. Main thread. The module's.
void KXAudioQuietenProbing();

/// The functions of PortAudio, under its names without "Pa_". They are in a module (audio/portaudio), which is loaded
/// when sound is first to be heard: PortAudio brings the libraries of all that it can play through. Any thread.
struct KXPortAudioLibrary
{
    /// nullptr where the module cannot be loaded, which the log says once.
    [[nodiscard]] static const KXPortAudioLibrary *shared();

    decltype(&KXAudioQuietenProbing) quietenProbing = &KXAudioQuietenProbing;
    decltype(&Pa_AbortStream) abortStream = &Pa_AbortStream;
    decltype(&Pa_CloseStream) closeStream = &Pa_CloseStream;
    decltype(&Pa_GetDefaultOutputDevice) getDefaultOutputDevice = &Pa_GetDefaultOutputDevice;
    decltype(&Pa_GetDeviceCount) getDeviceCount = &Pa_GetDeviceCount;
    decltype(&Pa_GetDeviceInfo) getDeviceInfo = &Pa_GetDeviceInfo;
    decltype(&Pa_GetHostApiInfo) getHostApiInfo = &Pa_GetHostApiInfo;
    decltype(&Pa_Initialize) initialize = &Pa_Initialize;
    decltype(&Pa_OpenStream) openStream = &Pa_OpenStream;
    decltype(&Pa_SetStreamFinishedCallback) setStreamFinishedCallback = &Pa_SetStreamFinishedCallback;
    decltype(&Pa_StartStream) startStream = &Pa_StartStream;
    decltype(&Pa_Terminate) terminate = &Pa_Terminate;
};

/// Once PortAudio is initialised.
inline const KXPortAudioLibrary &KXPortAudio() { return *KXPortAudioLibrary::shared(); }
