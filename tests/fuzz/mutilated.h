// What may happen to a text on its way.
#pragma once

#include <random>
#include <string>

namespace fuzz {

// The text, cut, with a part doubled, with bytes flipped or gone, or without line ends.
inline std::string mutilated(std::string text, std::mt19937& random) {
  if (text.empty()) return text;
  const auto place = [&] { return random() % text.size(); };
  switch (random() % 5) {
    case 0:
      text.resize(place());
      break;
    case 1:
      text.insert(place(), text.substr(place(), 200));
      break;
    case 2:
      for (auto flips = 1 + random() % 20; flips > 0; --flips)
        text[place()] = static_cast<char>(random());
      break;
    case 3:
      std::erase(text, '\n');
      break;
    default:
      text.erase(place(), 1 + random() % 40);
  }
  return text;
}

}  // namespace fuzz
