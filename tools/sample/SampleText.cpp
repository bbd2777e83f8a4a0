// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleText.h"

#include <array>

namespace orvel::SampleText {

namespace {

using Phrases = std::array<std::string_view, 10>;

constexpr std::array<Phrases, languageCount> phrasesByLanguage = {{
    {"On my way.",
     "See you at six?",
     "The train is late again",
     "Can you bring the blue folder?",
     "Dinner is at ours tonight, don’t be late!",
     "I’ll call you back in ten minutes",
     "That was a good one",
     "Did you find the keys?",
     "The garden looks lovely after the rain.",
     "No worries, tomorrow works as well"},
    {"Ya voy.",
     "¿Quedamos a las seis?",
     "El tren llega tarde otra vez",
     "¿Puedes traer la carpeta azul?",
     "¡Esta noche cenamos en casa, no llegues tarde!",
     "Te llamo en diez minutos",
     "¡Qué bueno!",
     "¿Encontraste las llaves?",
     "El jardín está precioso después de la lluvia.",
     "Tranquilo, mañana también va bien"},
    {"Bin unterwegs.",
     "Um sechs vor der Tür?",
     "Der Zug hat schon wieder Verspätung",
     "Bringst du die blaue Mappe mit?",
     "Heute Abend gibt’s bei uns Essen, sei pünktlich!",
     "Ich rufe in zehn Minuten zurück",
     "Schöne Grüße aus dem Süden",
     "Hast du die Schlüssel gefunden?",
     "Nach dem Regen ist der Garten wunderschön.",
     "Kein Problem, morgen passt auch"},
    {"今向かっています。",
     "六時に会えますか?",
     "また電車が遅れています",
     "青いファイルを持ってきてくれる?",
     "今夜はうちで晩ご飯ね、遅れないで!",
     "十分後にかけ直します",
     "それは面白いね",
     "鍵は見つかった?",
     "雨上がりの庭がきれいです。",
     "大丈夫、明日でもいいよ"},
    {"أنا في الطريق.",
     "نلتقي الساعة السادسة؟",
     "تأخر القطار مرة أخرى",
     "هل يمكنك إحضار الملف الأزرق؟",
     "العشاء عندنا الليلة، لا تتأخر!",
     "سأتصل بك بعد عشر دقائق",
     "هذا جميل جدًا",
     "هل وجدت المفاتيح؟",
     "الحديقة رائعة بعد المطر.",
     "لا بأس، غدًا مناسب أيضًا"},
    {"मैं रास्ते में हूँ।",
     "छह बजे मिलें?",
     "ट्रेन फिर से देर से है",
     "क्या तुम नीली फ़ाइल ला सकते हो?",
     "आज रात खाना हमारे यहाँ है, देर मत करना!",
     "दस मिनट में फ़ोन करता हूँ",
     "यह तो बढ़िया है",
     "चाबियाँ मिलीं क्या?",
     "बारिश के बाद बगीचा सुंदर लग रहा है।",
     "कोई बात नहीं, कल भी ठीक है"},
}};

constexpr std::array<std::string_view, 14> emojis = {
    "❤️",
    "😂",
    "👍🏽",
    "👩‍👩‍👧‍👦",
    "🏳️‍🌈",
    "👨🏿‍🚀",
    "🇪🇸",
    "🎉",
    "🫶🏻",
    "1️⃣",
    "🧑🏼‍🤝‍🧑🏾",
    "☀️",
    "🤷🏾‍♀️",
    "🏴󠁧󠁢󠁳󠁣󠁴󠁿"};

} // namespace

std::string_view phrase(SampleRandom& random, std::size_t language) {
    return random.pick(phrasesByLanguage[language]);
}

std::string_view emoji(SampleRandom& random) {
    return random.pick(emojis);
}

std::string phrases(SampleRandom& random, std::size_t language, std::size_t bytes) {
    std::string text;
    do {
        if (!text.empty()) {
            text += ' ';
        }
        text += phrase(random, language);
        if (random.chance(0.15)) {
            text += ' ';
            text += emoji(random);
        }
    } while (text.size() < bytes);
    return text;
}

} // namespace orvel::SampleText
