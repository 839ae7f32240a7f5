#pragma once

// A unit of the host's start-up work that can be run, measured or not.
class QENExecutableTask {
 public:
  virtual ~QENExecutableTask() = default;
  virtual void execute() = 0;
};
