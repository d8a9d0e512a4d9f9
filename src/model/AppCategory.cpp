#include "AppCategory.h"

#include <algorithm>
#include <utility>

namespace {

AppCategory make(QStringList prefixes, TokenType type, qint64 rate, const char* name,
                 bool terminal = false) {
    return AppCategory{std::move(prefixes), type, rate, QString::fromUtf8(name), terminal};
}

std::vector<AppCategory> buildRegistry() {
    using T = TokenType;
    std::vector<AppCategory> r;
    r.reserve(17);
    r.push_back(make({"com.anthropic",
                      "claude",
                      "com.openai.chat",
                      "com.openai",
                      "com.todesktop.230313mzl4w4u92",
                      "com.perplexity",
                      "com.github.copilot",
                      "com.google.Gemini",
                      "com.mistral",
                      "com.cohere.app",
                      "com.poe.app",
                      "com.phind.app",
                      "com.you.app",
                      "com.bing.chat",
                      "com.notion.notion-ai",
                      "com.codeium.windsurf",
                      "com.supermaven.app",
                      "com.continue.app",
                      "com.raycast.macos",
                      "com.granola.app"},
                     T::ai, 50, "AI Tool"));
    r.push_back(make({"com.apple.dt.Xcode", "com.microsoft.VSCode", "com.sublimetext",
                      "com.jetbrains", "io.cursor", "com.todesktop", "com.github.atom",
                      "com.panic.Nova", "com.coteditor.CotEditor", "com.zed.Zed", "dev.zed.Zed",
                      "com.hep.Heynote", "com.neovim.nvim", "org.vim.MacVim", "com.emacs.Emacs",
                      "org.gnu.Emacs", "com.codepoint.Editor", "com.replit.app", "com.gitpod.app",
                      "com.google.antigravity", "com.macromates.TextMate",
                      // Markdown editor.
                      "abnerworks.Typora"},
                     T::reasoning, 8, "Code Editor"));
    r.push_back(make({"com.apple.Terminal", "com.googlecode.iterm2", "dev.warp.Warp-Stable",
                      "com.jetbrains.toolbox", "io.alacritty", "com.SecureCRT.SecureCRT",
                      "com.royalapps.RoyalTSX",
                      // Four more terminal emulators.
                      "net.kovidgoyal.kitty", "com.github.wez.wezterm", "com.mitchellh.ghostty",
                      "co.zeit.hyper"},
                     T::reasoning, 8, "Terminal", true));
    r.push_back(
        make({"com.figma.Desktop", "com.bohemiancoding.sketch3", "com.adobe.xd",
              "com.framer.Framer", "io.zeplin.app", "com.omnigroup.OmniGraffle",
              "com.balsamiq.mockups3", "com.userototo.ScreenSnapAI", "com.canva.CanvaDesktop",
              "com.miro.desktop", "com.pitch.app", "com.whimsical.app"},
             T::reasoning, 22, "Design"));
    r.push_back(
        make({"com.apple.FinalCut", "com.apple.motionapp", "com.blackmagicdesign.resolve",
              "com.adobe.Premiere", "com.adobe.AfterEffects", "com.adobe.Photoshop",
              "com.adobe.Illustrator", "com.adobe.InDesign", "com.seriflabs.affinitydesigner",
              "com.seriflabs.affinityphoto", "com.seriflabs.affinitypublisher",
              "com.pixelmatorteam.pixelmator", "com.apple.garageband", "com.apple.logic10",
              "com.ableton.live", "com.cycling74.MaxApp", "com.descript.Descript"},
             T::reasoning, 20, "Creative"));
    r.push_back(
        make({"com.tableplus.TablePlus", "com.sequelpro.SequelPro", "com.mongodb.compass",
              "com.postmanlabs.mac", "com.paw.osx", "io.insomnia.app", "com.proxyman.NSProxy",
              "com.charlesproxy.charles", "org.wireshark.Wireshark", "com.tds.DBngin",
              "com.apple.Instruments", "com.apple.iphonesimulator", "com.docker.docker",
              "com.orbstack.OrbStack", "com.usebruno.app", "com.kapeli.dash", "com.pieces.app",
              // PostgreSQL client.
              "at.eggerapps.Postico"},
             T::reasoning, 15, "Dev Tool"));
    r.push_back(make({"com.torusknot.SourceTreeNotMAS", "com.axosoft.gitkraken",
                      "com.fournova.Tower", "com.sublimemerge", "com.github.GitHubDesktop",
                      // Git client.
                      "com.DanPristupov.Fork"},
                     T::reasoning, 12, "Git Client"));
    r.push_back(make({"org.rstudio.RStudio", "com.wolfram.Mathematica", "com.mathworks.matlab",
                      "com.apple.Numbers", "com.microsoft.Excel", "com.microsoft.PowerPoint",
                      "com.apple.Keynote"},
                     T::reasoning, 18, "Data / Slides"));
    r.push_back(make({"com.apple.Pages", "com.microsoft.Word", "md.obsidian", "notion.id",
                      "com.notion", "com.craftsmanSoftware.CraftDocs", "net.shinyfrog.bear",
                      "com.ulyssesapp.mac", "pro.writer.mac", "com.apple.Notes",
                      "com.bloom-built.DayOne", "co.noteplan.NotePlan-3", "com.logseq.logseq",
                      "org.standardnotes", "com.roamresearch", "com.barebones.bbedit"},
                     T::output, 32, "Writing"));
    r.push_back(
        make({"com.tinyspeck.slackmacgap", "com.discord", "com.telegram.desktop",
              "net.whatsapp.WhatsApp", "org.whispersystems.signal-desktop", "com.apple.iChat",
              "com.apple.MobileSMS", "ru.keepcoder.Telegram", "com.skype.skype",
              "com.mattermost.desktop", "com.beeper.desktop", "com.microsoft.teams2",
              "com.microsoft.teams", "com.facebook.archon", "com.intercom.Desktop", "com.front.app",
              "com.zulip.zulip", "com.rocketchat.RocketChat", "com.twist.desktop"},
             T::output, 28, "Messaging"));
    r.push_back(make({"com.apple.mail", "com.microsoft.Outlook", "com.readdle.Spark", "com.airmail",
                      "com.mimestream.Mimestream", "com.superhuman.app", "com.cloudmagic.mail",
                      "com.hellokarma.Kiwi", "com.googleapps.Gmail", "com.mail-planner.desktop"},
                     T::output, 28, "Email"));
    r.push_back(make(
        {"com.culturedcode.ThingsMac", "com.omnigroup.OmniFocus", "com.todoist.mac.Todoist",
         "com.linear", "com.atlassian.jira", "com.asana.desktop", "com.airtable.airtable",
         "com.clickup.desktop", "com.apple.reminders", "com.height.app", "com.shortcut.app",
         "com.basecamp.desktop", "com.monday.desktop", "com.trello.desktop", "com.wrike.desktop",
         "com.apple.iCal", "com.flexibits.fantastical2.mac", "com.busycal.busycal"},
        T::output, 20, "Task Manager"));
    r.push_back(make({"us.zoom.xos", "com.apple.FaceTime", "com.loom.desktop", "com.webex",
                      "com.whereby.desktop", "com.around.Around", "com.mmhmm.app",
                      "com.google.Meet", "com.bluejeans.BlueJeans", "com.ringcentral.RingCentral",
                      "com.chorus.app", "com.goto.GoToMeeting"},
                     T::input, 22, "Video Call"));
    r.push_back(make({"com.apple.Safari", "com.google.Chrome", "org.mozilla.firefox",
                      "company.thebrowser.Browser", "com.microsoft.edgemac", "com.brave.Browser",
                      "com.operasoftware.Opera", "com.vivaldi.Vivaldi", "org.chromium.Chromium",
                      "com.sigmaos.sigmaos", "com.kagi.orion", "com.fennec.firefox",
                      "com.waterfox.app", "com.tor.TorBrowser", "com.zen-browser.app"},
                     T::input, 15, "Browser"));
    r.push_back(
        make({"com.readdle.PDFExpert", "com.adobe.Reader", "com.apple.Preview", "com.amazon.Kindle",
              "com.apple.iBooksX", "com.reederapp", "com.ranchero.NetNewsWire",
              "com.readwise.ReadwiseReader", "com.instapaper.Instapaper", "com.getpocket.Pocket",
              "com.pdfelement.PDFelement", "com.pdfpen.pdfpen"},
             T::input, 18, "Reading"));
    r.push_back(
        make({"com.apple.Podcasts", "com.castro.desktop", "com.overcast.desktop", "fm.player.app"},
             T::input, 10, "Podcast"));
    r.push_back(make({"com.spotify.client", "com.apple.Music", "tv.plex.desktop-computer",
                      "org.videolan.vlc", "com.apple.TV", "com.tidal.desktop", "com.deezer.Deezer",
                      "com.soundcloud.desktop", "com.youtube.desktop", "com.amazon.music",
                      "net.tidal.TIDAL", "com.infuse.app", "com.movist.MovistPrime",
                      // Media player.
                      "com.colliderli.iina"},
                     T::input, 0, "Music / Video"));
    return r;
}

struct PrefixPair {
    QString lowerPrefix;
    const AppCategory* category;
};

// Built once on first lookup: every (lower-cased prefix, category) pair, longest prefix
// first; a stable sort keeps registry and prefix order among prefixes of equal length.
const std::vector<PrefixPair>& appCategoryPairs() {
    static const std::vector<PrefixPair> pairs = [] {
        std::vector<PrefixPair> p;
        for (const AppCategory& c : appCategoryRegistry())
            for (const QString& prefix : c.bundleIDPrefixes)
                p.push_back({prefix.toLower(), &c});
        std::stable_sort(p.begin(), p.end(), [](const PrefixPair& a, const PrefixPair& b) {
            return a.lowerPrefix.size() > b.lowerPrefix.size();
        });
        return p;
    }();
    return pairs;
}

} // namespace

const std::vector<AppCategory>& appCategoryRegistry() {
    static const std::vector<AppCategory> registry = buildRegistry();
    return registry;
}

AppCategory category(const QString& forBundleID) {
    const QString lower = forBundleID.toLower();
    for (const PrefixPair& pair : appCategoryPairs())
        if (lower.startsWith(pair.lowerPrefix))
            return *pair.category;
    return AppCategory{{forBundleID}, TokenType::input, 8, QStringLiteral("Other"), false};
}
