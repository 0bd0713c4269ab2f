// Work by several threads: every result once, in the order of the inputs, up to the first error.

#include "run/OrderedWork.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using Work = kelvo::OrderedWork<int, int>;

Work::Source Numbers(int n) {
  return [n, next = 0](int& number) mutable {
    number = next++;
    return number < n;
  };
}

/// Takes longer for some numbers than for others.
int SquareOf(int number) {
  for (int i = 0; i < number * 7919 % 50; i++) std::this_thread::yield();
  return number * number;
}

std::vector<Work::Worker> Workers(unsigned threads, const Work::Worker& worker) {
  return std::vector<Work::Worker>(threads, worker);
}

/// The results up to the end or an error, whose text comes behind them.
std::pair<std::vector<int>, std::string> ResultsOf(Work& work) {
  std::vector<int> results;
  try {
    for (int result = 0; work.Next(result);) results.push_back(result);
  } catch (const std::exception& e) {
    return {results, e.what()};
  }
  return {results, ""};
}

std::vector<int> Squares(int n) {
  std::vector<int> squares;
  for (int i = 0; i < n; i++) squares.push_back(i * i);
  return squares;
}

TEST(OrderedWork, GivesTheResultsInTheOrderOfTheInputs) {
  for (const unsigned threads : {1u, 2u, 3u, 16u})
    for (const int n : {0, 1, 7, 1000}) {
      Work work(Numbers(n), Workers(threads, SquareOf));
      const auto [results, error] = ResultsOf(work);
      EXPECT_EQ(results, Squares(n)) << threads << " threads";
      EXPECT_EQ(error, "");
      int more = 0;
      EXPECT_FALSE(work.Next(more)) << "what is at its end stays so";
    }
}

TEST(OrderedWork, ThrowsTheErrorOfAWorkerBehindTheResultsBeforeIt) {
  for (const unsigned threads : {1u, 2u, 16u}) {
    const auto fail = [](int number) {
      if (number == 100) throw std::runtime_error("one hundred");
      return SquareOf(number);
    };
    Work work(Numbers(1000), Workers(threads, fail));
    const auto [results, error] = ResultsOf(work);
    EXPECT_EQ(results, Squares(100)) << threads << " threads";
    EXPECT_EQ(error, "one hundred");
  }
}

TEST(OrderedWork, ThrowsTheErrorOfTheSourceBehindTheResultsBeforeIt) {
  for (const unsigned threads : {1u, 2u, 16u}) {
    const auto source = [numbers = Numbers(100)](int& number) mutable {
      if (!numbers(number)) throw std::runtime_error("no more");
      return true;
    };
    Work work(source, Workers(threads, SquareOf));
    const auto [results, error] = ResultsOf(work);
    EXPECT_EQ(results, Squares(100)) << threads << " threads";
    EXPECT_EQ(error, "no more");
  }
}

} // namespace
