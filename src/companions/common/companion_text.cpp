#include "companions/common/companion_text.h"

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "files/paths.h"
#include "files/text_file.h"
#include "lang/lang.h"
#include "lang/language_file.h"
#include "xml/node.h"

namespace app {
namespace {

struct State {
  XmlNodePtr document;  // keeps the installed language's tree alive
  std::u16string code;
};

State& Current() {
  static State state;
  return state;
}

XmlNodePtr ParseFile(const std::u16string& path) {
  XmlNodePtr root = cXmlNode::Create();
  root->XmlData(mGlobal::LoadTextFile(path));
  return root;
}

bool IsFrench(std::u16string_view code) {
  return base::EqualNoCase(code.substr(0, 2), u"fr");
}

}  // namespace

const std::vector<CompanionString>& CompanionStrings() {
  static const std::vector<CompanionString> strings = {
      {u"TvAppsClose.Messages.Confirm",
       u"Ces applications lanc\u00E9es depuis %folder% vont \u00EAtre ferm\u00E9es :\r\n\r\n%list%",
       u"These applications started from %folder% will be closed:\r\n\r\n%list%"},
      {u"TvAppsClose.Messages.StillRunning",
       u"Ces applications sont toujours en cours d'ex\u00E9cution :\r\n\r\n%list%",
       u"These applications are still running:\r\n\r\n%list%"},
      {u"TvAppsClose.Messages.Caption", u"Fermeture des applications", u"Closing applications"},
      {u"TvAppsClose.Messages.Closing",
       u"Fermeture des applications lanc\u00E9es depuis le lecteur :\r\n\r\n%list%\r\n\r\nEncore "
       u"%seconds% s avant de compter celles qui restent.",
       u"Closing the applications started from the drive:\r\n\r\n%list%\r\n\r\n%seconds% s left "
       u"before those still running are counted."},
      {u"TvAppsClose.Messages.ClosingLine", u"Fermeture : %list% (encore %seconds% s)",
       u"Closing: %list% (%seconds% s left)"},
      {u"TvAppsClose.Messages.Remain",
       u"Ces applications n'ont pas \u00E9t\u00E9 ferm\u00E9es :\r\n\r\n%list%",
       u"These applications were not closed:\r\n\r\n%list%"},
      {u"TvAppsClose.Messages.CloseNow", u"Fermer maintenant", u"Close now"},
      {u"TvAppsClose.Messages.Cancel", u"Annuler", u"Cancel"},
      {u"TvAppsClose.Messages.ConfirmForce",
       u"Les applications encore ouvertes vont \u00EAtre arr\u00EAt\u00E9es de force. Le travail "
       u"non enregistr\u00E9 dans ces applications sera perdu :\r\n\r\n%list%",
       u"The applications still open will be ended by force. Unsaved work in them will be "
       u"lost:\r\n\r\n%list%"},
      {u"TvDiskEjector.Messages.Ejected",
       u"Vous pouvez maintenant retirer le p\u00E9riph\u00E9rique %drive%.",
       u"You may now remove the drive %drive%."},
      {u"TvDiskEjector.Messages.NotRemovable",
       u"Le lecteur %drive% n'est pas un p\u00E9riph\u00E9rique amovible : il n'est pas "
       u"\u00E9ject\u00E9.\r\n\r\n%details%",
       u"The drive %drive% is not a removable drive: it is not ejected.\r\n\r\n%details%"},
      {u"TvDiskEjector.Messages.SystemDisk",
       u"Le lecteur %drive% contient le syst\u00E8me en cours d'ex\u00E9cution : il n'est pas "
       u"\u00E9ject\u00E9.\r\n\r\n%details%",
       u"The drive %drive% holds the running system: it is not ejected.\r\n\r\n%details%"},
      {u"TvDiskEjector.Messages.Unidentified",
       u"Le lecteur de %folder% ne peut pas \u00EAtre identifi\u00E9 : il n'est pas "
       u"\u00E9ject\u00E9.\r\n\r\n%details%",
       u"The drive of %folder% cannot be identified: it is not ejected.\r\n\r\n%details%"},
      {u"TvDiskEjector.Messages.Refused",
       u"Le syst\u00E8me a refus\u00E9 d'\u00E9jecter le lecteur %drive% (%veto%).\r\n\r\nFermez "
       u"les programmes qui l'utilisent et r\u00E9essayez.",
       u"The system refused to eject the drive %drive% (%veto%).\r\n\r\nClose the programs that "
       u"use it and try again."},
      {u"TvDiskEjector.Messages.RefusedBy",
       u"Le syst\u00E8me a refus\u00E9 d'\u00E9jecter le lecteur %drive%. Ces programmes "
       u"l'utilisent :\r\n\r\n%programs%",
       u"The system refused to eject the drive %drive%. These programs are using it:\r\n\r\n"
       u"%programs%"},
      {u"TvDiskEjector.Messages.HeldProgram", u"%program% s'ex\u00E9cute depuis %path%",
       u"%program% runs from %path%"},
      {u"TvDiskEjector.Messages.HeldModule", u"%program% utilise %path%", u"%program% uses %path%"},
      {u"TvDiskEjector.Messages.HeldFolder", u"%program% travaille dans le dossier %path%",
       u"%program% works in the folder %path%"},
      {u"TvDiskEjector.Messages.HeldFile", u"%program% a ouvert %path%",
       u"%program% has %path% open"},
      {u"TvDiskEjector.Messages.HeldStopped",
       u"%program% a emp\u00EAch\u00E9 le retrait (d'apr\u00E8s le journal du syst\u00E8me)",
       u"%program% stopped the removal (as the system recorded it)"},
      {u"TvDiskEjector.Messages.SystemHolder",
       u"(un programme du syst\u00E8me : attendez un moment et r\u00E9essayez)",
       u"(a program of the system: wait a moment and try again)"},
      {u"TvDiskEjector.Messages.Uninspected",
       u"%count% autre(s) programme(s) n'ont pas pu \u00EAtre examin\u00E9s (d'un autre "
       u"utilisateur, ou lanc\u00E9s en administrateur) : ils utilisent peut-\u00EAtre aussi "
       u"le lecteur.",
       u"%count% other program(s) could not be inspected (another user's, or running as "
       u"administrator): they may be using the drive too."},
      {u"TvDiskEjector.Messages.ChoiceClose",
       u"Les fermer et r\u00E9essayer : chacun de ces programmes est pri\u00E9 de se fermer, "
       u"comme vous le fermeriez (il peut vous demander d'enregistrer votre travail), puis "
       u"l'\u00E9jection est tent\u00E9e \u00E0 nouveau.\r\nAnnuler : tout laisser en "
       u"l'\u00E9tat.",
       u"Close them and try again: each of these programs is asked to close, as you would close "
       u"it (it may ask you about unsaved work), and the eject is tried again.\r\nCancel: leave "
       u"everything as it is."},
      {u"TvDiskEjector.Messages.ChoiceRetry",
       u"R\u00E9essayer : essayer \u00E0 nouveau.\r\nAnnuler : tout laisser en l'\u00E9tat.",
       u"Retry: try again.\r\nCancel: leave everything as it is."},
      {u"TvDiskEjector.Buttons.CloseAndRetry", u"Les fermer et r\u00E9essayer",
       u"Close them and try again"},
      {u"TvDiskEjector.Buttons.Cancel", u"Annuler", u"Cancel"},
      {u"TvDiskEjector.Messages.Failed",
       u"Le lecteur %drive% n'a pas pu \u00EAtre \u00E9ject\u00E9 (erreur %error%).\r\n\r\n"
       u"%details%",
       u"The drive %drive% could not be ejected (error %error%).\r\n\r\n%details%"},
      {u"TvDiskEjector.Messages.RunsFromDrive",
       u"Le lecteur %drive% ne peut pas \u00EAtre \u00E9ject\u00E9 : TvDiskEjector s'ex\u00E9cute "
       u"depuis ce lecteur, et aucun dossier hors du lecteur n'a pu recevoir la copie qui "
       u"l'aurait \u00E9ject\u00E9.\r\n\r\n%details%\r\n\r\nFermez les programmes du lecteur "
       u"et retirez-le avec la commande du syst\u00E8me pour retirer le mat\u00E9riel en toute "
       u"s\u00E9curit\u00E9.",
       u"The drive %drive% cannot be ejected: TvDiskEjector runs from it, and no folder off the "
       u"drive could take the copy that would have ejected it.\r\n\r\n%details%\r\n\r\nClose "
       u"the programs of the drive and remove it with the system's own command to safely remove "
       u"hardware."},
  };
  return strings;
}

std::u16string LoadCompanionLanguage(std::u16string_view program_folder) {
  return base::Trap(base::InFunction(u"mCompanion.LoadCompanionLanguage"), std::u16string(), [&] {
    State& state = Current();
    state = State{};
    mLang::Lang().Xml(nullptr);

    // The program's own choice, read from its configuration and never written back.
    mLang::LanguageSettings settings;
    XmlNodePtr config = ParseFile(sys::ChildPath(program_folder, u"TvEject.xml"));
    if (config->Name() == u"TarvelUSBEject") {
      XmlNodePtr user = config->FindNode(u"UserLanguage", false, true);
      XmlNodePtr language = config->FindNode(u"Language", false, true);
      if (user) settings.user_language = user->Value();
      if (language) settings.language = language->Value();
      if (language) settings.file = language->Attribut(u"file");
    }
    const mLang::LanguageChoice choice =
        mLang::ChooseLanguage(program_folder, u"TvEject", settings);
    state.code = choice.code;

    const std::u16string path = sys::ChildPath(program_folder, choice.file);
    DebugLog(u"Loading language file : " + path);
    const mLang::LoadedLanguage loaded = mLang::LoadLanguage(path, choice.code);
    state.document = loaded.document;
    mLang::Lang().Xml(loaded.language);
    DebugLog(u"Current language: " + choice.code);
    return choice.code;
  });
}

std::u16string CompanionText(
    std::u16string_view key,
    const std::vector<std::pair<std::u16string_view, std::u16string>>& values) {
  std::u16string text;
  for (const CompanionString& s : CompanionStrings()) {
    if (s.key != key) continue;
    const bool french = IsFrench(Current().code);
    text = mLang::Lang().GetString(key, french ? s.french : s.english);
    break;
  }
  for (const auto& [name, value] : values) {
    std::size_t at = 0;
    while ((at = text.find(name, at)) != std::u16string::npos) {
      text.replace(at, name.size(), value);
      at += value.size();
    }
  }
  return text;
}

}  // namespace app
