#pragma once

class QENScrollVelocityUtility;

// Told of a scroll's start, of each velocity measured during it, and of its end.
class QENScrollVelocityEventObserver {
 public:
  virtual ~QENScrollVelocityEventObserver() = default;
  virtual void scrollVelocityUtilityScrollViewDidStartScrolling(
      QENScrollVelocityUtility& utility) = 0;
  // Content points per second, never negative.
  virtual void scrollVelocityUtility(QENScrollVelocityUtility& utility,
                                     double scrollVelocityDidChange) = 0;
  virtual void scrollVelocityUtilityScrollViewDidStopScrolling(
      QENScrollVelocityUtility& utility) = 0;
};
