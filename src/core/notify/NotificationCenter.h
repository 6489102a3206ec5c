#pragma once
// In-process notifications: a name and an object text, delivered synchronously to every
// observer of that name on the thread that posts. An observation ends when its token is dropped.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace wh {

class NotificationCenter {
 public:
  using Handler = std::function<void(const std::string& object)>;

  class Observation {
   public:
    Observation() = default;
    Observation(Observation&&) noexcept = default;
    Observation& operator=(Observation&&) noexcept = default;
    ~Observation() = default;

   private:
    friend class NotificationCenter;
    explicit Observation(std::shared_ptr<Handler> handler) : handler_(std::move(handler)) {}
    std::shared_ptr<Handler> handler_;
  };

  [[nodiscard]] Observation observe(const std::string& name, Handler handler);
  void post(const std::string& name, const std::string& object = "");

 private:
  std::mutex mutex_;
  std::map<std::string, std::vector<std::weak_ptr<Handler>>> observers_;
};

}  // namespace wh
