#include "apertium_chain.h"
#include "translator.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace service {
namespace {

using namespace std::chrono_literals;

TEST(AgreeOnTest, EnglishMayBeEitherLanguageAndTheOtherMustBeOnOffer) {
    struct Case {
        ClientLanguage a;
        ClientLanguage b;
        const char* target; // null: refused
    };
    const std::array cases = {
        Case{{"en-US", "en"}, {"es-ES", "es"}, "es"},
        Case{{"it-IT", "it"}, {"en-IN", "en"}, "it"},
        Case{{"en", "en"}, {"pt-PT", "pt"}, "pt"},
        Case{{"en-US", "en"}, {"en-GB", "en"}, nullptr},
        Case{{"zh-CN", "zh-Hans"}, {"en-US", "en"}, nullptr},
        Case{{"es-ES", "es"}, {"fr-FR", "fr"}, nullptr},
        Case{{"english", "en"}, {"fr-FR", "fr"}, nullptr},
        Case{{"en-\"}", "en"}, {"fr-FR", "fr"}, nullptr},
        Case{{"", ""}, {"", ""}, nullptr},
        Case{{"en-" + std::string(33, 'x'), "en"}, {"fr-FR", "fr"}, nullptr},
        Case{{"en", "en"}, {std::string(36, 'f'), "fr"}, nullptr},
    };
    for (const Case& sample : cases) {
        const auto conversation = AgreeOn(sample.a, sample.b);
        ASSERT_EQ(conversation.has_value(), sample.target != nullptr) << sample.a.locale;
        if (!conversation) {
            continue;
        }
        EXPECT_EQ(conversation->targetCode, sample.target);
        EXPECT_TRUE(conversation->spokenLocale.starts_with("en"));
    }
}

TEST(TranslatorTest, EveryLanguageOnOfferIsReached) {
    struct Case {
        const char* code;
        const char* locale;
        const char* translation; // of "We are going to the house"
    };
    constexpr std::array kCases = {
        Case{"es", "es-ES", "Estamos yendo a la casa"},
        Case{"pt", "pt-BR", "Estamos indo à casa"},
        Case{"pt", "pt-PT", "Estamos a ir à casa"},
        Case{"fr", "fr-FR", "Nous sommes en train d'aller à la maison"},
        Case{"it", "it-IT", "Stiamo andando alla casa"},
    };
    ChainPool chains;
    for (const Case& sample : kCases) {
        Translator translator({"en-US", sample.locale, sample.code}, chains);
        EXPECT_EQ(translator.Translate("We are going to the house", 5s), sample.translation)
            << sample.locale;
    }
}

TEST(ApertiumChainTest, TextsDoNotRunIntoEachOtherAndMarksPassThrough) {
    ApertiumChain chain("eng-spa");
    EXPECT_EQ(chain.Translate("house"), "Casa");
    EXPECT_EQ(chain.Translate(""), "");
    EXPECT_EQ(chain.Translate(" \n "), "");
    EXPECT_EQ(chain.Translate("xyzzy"), "xyzzy"); // unknown, and not marked as such
    EXPECT_EQ(chain.Translate("the ^house$ [or] {tree}/<b>"), "La ^casa$ [o] {árbol}/<b>");
    EXPECT_EQ(chain.Translate(std::string_view("house\0tree", 10)), "Árbol de casa");
    EXPECT_EQ(chain.Translate("house"), "Casa");
    EXPECT_THROW(ApertiumChain("eng-xyz"), std::runtime_error);
}

TEST(ApertiumChainTest, AKilledStageCostsNoTranslation) {
    ApertiumChain chain("eng-spa");
    ASSERT_EQ(chain.Translate("house"), "Casa");
    const std::size_t stages = chain.Stages().size();
    for (std::size_t stage = 0; stage < stages; stage += stages / 2) {
        ASSERT_EQ(::kill(chain.Stages()[stage].Id(), SIGKILL), 0);
        EXPECT_EQ(chain.Translate("tree"), "Árbol") << "after the end of stage " << stage;
        EXPECT_EQ(chain.Translate("house"), "Casa");
    }
}

TEST(ApertiumChainTest, AStuckStageHoldsNobodyUpForLong) {
    ApertiumChain chain("eng-spa");
    ASSERT_EQ(chain.Translate("house"), "Casa");
    ASSERT_EQ(::kill(chain.Stages()[3].Id(), SIGSTOP), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(chain.Translate("tree"), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
    EXPECT_EQ(chain.Translate("house"), "Casa") << "an answer that came too late was taken";
}

TEST(ChainPoolTest, ManyAtOnceShareFewChainsAndEachGetsItsOwnText) {
    ChainPool chains(2);
    chains.Prepare("eng-spa");
    EXPECT_THROW(chains.Prepare("eng-xyz"), std::runtime_error);
    EXPECT_THROW(chains.Translate("eng-xyz", "house", 1s), std::runtime_error);
    constexpr std::array kWords = {std::pair{"house", "Casa"}, std::pair{"tree", "Árbol"},
                                   std::pair{"dog", "Perro"}, std::pair{"water", "Agua"}};
    std::array<std::jthread, kWords.size()> threads;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::jthread([&chains, word = kWords[i]] {
            for (int time = 0; time < 25; ++time) {
                EXPECT_EQ(chains.Translate("eng-spa", word.first, 5s), word.second);
            }
        });
    }
}

TEST(ChainPoolTest, WhoCannotWaitGetsNothingWhileOthersHaveAllChains) {
    ChainPool chains(1);
    std::jthread other([&] { // long enough to be met at its work
        chains.Translate("eng-spa", std::string(20'000, 'x') + " house", 5s);
    });
    std::optional<std::string> translation = "";
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (translation && std::chrono::steady_clock::now() < deadline) {
        translation = chains.Translate("eng-spa", "tree", 0ms);
    }
    EXPECT_FALSE(translation);
    EXPECT_EQ(chains.Translate("eng-spa", "tree", 5s), "Árbol");
}

} // namespace
} // namespace service
