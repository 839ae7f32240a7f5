#pragma once

// Something that waits for the next frames drawn, such as a screen waiting to be displayed. The
// frame monitor tells each listener it holds of every frame reported, on the reporting thread and
// outside its own lock, until the listener says it waits no more.
class QENFrameListener {
 public:
  virtual ~QENFrameListener() = default;
  // A frame drawn from `startTime` to `endTime` (the library's monotonic seconds). False: this
  // listener needs no more frames, and the monitor lets it go.
  virtual bool frameDrawn(double startTime, double endTime) = 0;
};
