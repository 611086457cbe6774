#pragma once

/// Keeps what sound libraries print while devices are looked for away from standard error: ALSA names each plug-in that
/// a machine lacks, JACK each server that does not run. It becomes debug lines of the category "kestrix.audio". Before
/// PortAudio is initialised; any number of times. Main thread.
void KXAudioQuietenProbing();
