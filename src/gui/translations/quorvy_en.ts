<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_GB" sourcelanguage="pl_PL">
<context>
    <name>AboutDialog</name>
    <message>
        <source>O programie</source>
        <translation>About</translation>
    </message>
    <message>
        <source>Wersja</source>
        <translation>Version</translation>
    </message>
    <message>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Autorzy: zespół Tarnvel, &lt;a href=&quot;mailto:dhcp@tarnvel.example&quot;&gt;dhcp@tarnvel.example&lt;/a&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Authors: the Tarnvel team, &lt;a href=&quot;mailto:dhcp@tarnvel.example&quot;&gt;dhcp@tarnvel.example&lt;/a&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Strona projektu: &lt;a href=&quot;https://tarnvel.example/dhcp-server&quot;&gt;tarnvel.example/dhcp-server&lt;/a&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Project website: &lt;a href=&quot;https://tarnvel.example/dhcp-server&quot;&gt;tarnvel.example/dhcp-server&lt;/a&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
</context>
<context>
    <name>AddRawOptionDialog</name>
    <message>
        <source>Dodaj opcję</source>
        <translation>Add option</translation>
    </message>
    <message>
        <source>Kod opcji</source>
        <translation>Option code</translation>
    </message>
    <message>
        <source>Dane</source>
        <translation>Data</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Anuluj</source>
        <translation>Cancel</translation>
    </message>
</context>
<context>
    <name>AddReservationDialog</name>
    <message>
        <source>Dodaj rezerwację</source>
        <translation>Add reservation</translation>
    </message>
    <message>
        <source>Adres MAC</source>
        <translation>MAC address</translation>
    </message>
    <message>
        <source>Adres IP</source>
        <translation>IP address</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Anuluj</source>
        <translation>Cancel</translation>
    </message>
</context>
<context>
    <name>LeasesDialog</name>
    <message>
        <source>Lista dzierżawionych adresów</source>
        <translation>Leased addresses</translation>
    </message>
    <message>
        <source>Adres MAC</source>
        <translation>MAC address</translation>
    </message>
    <message>
        <source>Adres IP</source>
        <translation>IP address</translation>
    </message>
    <message>
        <source>Pozostały czas [s]</source>
        <translation>Time left [s]</translation>
    </message>
</context>
<context>
    <name>LogBrowserDialog</name>
    <message>
        <source>Log serwera</source>
        <translation>Server log</translation>
    </message>
    <message>
        <source>Czas</source>
        <translation>Time</translation>
    </message>
    <message>
        <source>Rodzaj zdarzenia</source>
        <translation>Event type</translation>
    </message>
    <message>
        <source>Dodatkowe informacje</source>
        <translation>Details</translation>
    </message>
</context>
<context>
    <name>LogSettingsDialog</name>
    <message>
        <source>Ustawienia logu</source>
        <translation>Log settings</translation>
    </message>
    <message>
        <source>Zapisywanie logu włączone</source>
        <translation>Logging enabled</translation>
    </message>
    <message>
        <source>Zapisuj także informacje o zignorowanych komunikatach DHCP</source>
        <translation>Also log ignored DHCP messages</translation>
    </message>
    <message>
        <source>Rodzaje zapisywanych zdarzeń</source>
        <translation>Events to log</translation>
    </message>
    <message>
        <source>uruchomiono serwer</source>
        <translation>server started</translation>
    </message>
    <message>
        <source>zatrzymano serwer</source>
        <translation>server stopped</translation>
    </message>
    <message>
        <source>otrzymano DHCP Discover</source>
        <translation>DHCP Discover received</translation>
    </message>
    <message>
        <source>wysłano DHCP Offer</source>
        <translation>DHCP Offer sent</translation>
    </message>
    <message>
        <source>wysłano DHCP Ack</source>
        <translation>DHCP Ack sent</translation>
    </message>
    <message>
        <source>otrzymano DHCP Request</source>
        <translation>DHCP Request received</translation>
    </message>
    <message>
        <source>wysłano DHCP Nak</source>
        <translation>DHCP Nak sent</translation>
    </message>
    <message>
        <source>otrzymano DHCP Inform</source>
        <translation>DHCP Inform received</translation>
    </message>
    <message>
        <source>otrzymano DHCP Release</source>
        <translation>DHCP Release received</translation>
    </message>
    <message>
        <source>Ścieżka pliku logu</source>
        <translation>Log file path</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Anuluj</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>Pliki tekstowe</source>
        <translation>Text files</translation>
    </message>
    <message>
        <source>Wszystkie pliki</source>
        <translation>All files</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>Tarnvel DHCP Server</source>
        <translation>Tarnvel DHCP Server</translation>
    </message>
    <message>
        <source>Początek puli adresów</source>
        <translation>Address pool start</translation>
    </message>
    <message>
        <source>Koniec puli adresów</source>
        <translation>Address pool end</translation>
    </message>
    <message>
        <source>Maska podsieci</source>
        <translation>Subnet mask</translation>
    </message>
    <message>
        <source>Brama domyślna</source>
        <translation>Default gateway</translation>
    </message>
    <message>
        <source>Serwer DNS 1</source>
        <translation>DNS server 1</translation>
    </message>
    <message>
        <source>Serwer DNS 2</source>
        <translation>DNS server 2</translation>
    </message>
    <message>
        <source>Czas trwania dzierżawy</source>
        <translation>Lease duration</translation>
    </message>
    <message>
        <source>Adres nasłuchiwania</source>
        <translation>Listening address</translation>
    </message>
    <message>
        <source>Uruchom serwer</source>
        <translation>Start server</translation>
    </message>
    <message>
        <source>Ustawienia</source>
        <translation>Settings</translation>
    </message>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>Pomoc</source>
        <translation>Help</translation>
    </message>
    <message>
        <source>Rezerwacje adresów...</source>
        <translation>Address reservations...</translation>
    </message>
    <message>
        <source>Dodatkowe opcje DHCP...</source>
        <translation>Additional DHCP options...</translation>
    </message>
    <message>
        <source>Ustawienia logu...</source>
        <translation>Log settings...</translation>
    </message>
    <message>
        <source>Minimalizuj do tacki systemowej</source>
        <translation>Minimize to system tray</translation>
    </message>
    <message>
        <source>Dzierżawione adresy...</source>
        <translation>Leased addresses...</translation>
    </message>
    <message>
        <source>Log...</source>
        <translation>Log...</translation>
    </message>
    <message>
        <source>O programie...</source>
        <translation>About...</translation>
    </message>
    <message>
        <source>Najpierw wprowadź poprawne ustawienia w bieżącym oknie!</source>
        <translation>Please enter valid settings in this window first!</translation>
    </message>
    <message>
        <source>Zatrzymaj serwer</source>
        <translation>Stop server</translation>
    </message>
    <message>
        <source>Pokaż okno</source>
        <translation>Show window</translation>
    </message>
    <message>
        <source>Zakończ</source>
        <translation>Quit</translation>
    </message>
    <message>
        <source>Uwaga! Niektóre linie pliku konfiguracynego są błędne i nie zostały wzięte pod uwagę. Zostaną one automatycznie usunięte po uruchomieniu serwera lub zamknięciu programu.</source>
        <translation>Warning! Some lines of the configuration file are invalid and have been ignored. They will be removed automatically when the server starts or the program closes.</translation>
    </message>
    <message>
        <source>Uwaga! Plik konfiguracyjny zawiera poważne błędy. Wykorzystane zostaną ustawienia domyślne, które następnie nadpiszą obecny plik. Jeśli chcesz zachować jego zawartość, wykonaj kopię przed uruchomieniem serwera lub zamknięciem programu.</source>
        <translation>Warning! The configuration file contains serious errors. The default settings will be used and will then overwrite the current file. If you want to keep its contents, make a copy before starting the server or closing the program.</translation>
    </message>
    <message>
        <source>Aby program mógł działać, musi zostać uruchomiony przez użytkownika &quot;root&quot;.</source>
        <translation>The program must be run by the user &quot;root&quot; to work.</translation>
    </message>
    <message>
        <source>Nie można uruchomić programu!</source>
        <translation>The program cannot be started!</translation>
    </message>
    <message>
        <source>Nie udało się uruchomić nasłuchiwania na porcie 67!</source>
        <translation>Could not start listening on port 67!</translation>
    </message>
    <message>
        <source>Plik dzierżaw tego adresu jest używany przez inny działający serwer!</source>
        <translation>The lease file of this address is in use by another running server!</translation>
    </message>
    <message>
        <source>Nie można zapisywać dziennika dzierżaw (%1: %2). Serwer nadal odpowiada klientom, ale dzierżawy przyznane od tej chwili przepadną, jeśli program zakończy się bez zatrzymania serwera. Zwolnij miejsce na dysku; zapis zostanie ponowiony samoczynnie.</source>
        <translation>The lease journal cannot be written (%1: %2). The server keeps answering clients, but leases granted from now on are lost if the program ends without the server being stopped. Free some disk space; writing is retried automatically.</translation>
    </message>
    <message>
        <source>Dziennik dzierżaw był uszkodzony. Przywrócono dzierżawy zapisane przed uszkodzeniem, a uszkodzony dziennik zachowano jako %1.</source>
        <translation>The lease journal was damaged. The leases recorded before the damage were restored, and the damaged journal was kept as %1.</translation>
    </message>
    <message>
        <source>Dziennik dzierżaw nie pasuje do pliku dzierżaw obok niego, więc go nie odtworzono. Zachowano go jako %1.</source>
        <translation>The lease journal does not continue the lease file beside it, so it was not replayed. It was kept as %1.</translation>
    </message>
    <message>
        <source>Nie można uruchomić serwera, ponieważ ustawienia są niepoprawne!</source>
        <translation>The server cannot be started because the settings are not valid!</translation>
    </message>
</context>
<context>
    <name>RawOptionsDialog</name>
    <message>
        <source>Dodatkowe opcje DHCP</source>
        <translation>Additional DHCP options</translation>
    </message>
    <message>
        <source>Dodaj...</source>
        <translation>Add...</translation>
    </message>
    <message>
        <source>Usuń</source>
        <translation>Remove</translation>
    </message>
    <message>
        <source>Kod opcji</source>
        <translation>Option code</translation>
    </message>
    <message>
        <source>Dane</source>
        <translation>Data</translation>
    </message>
    <message>
        <source>Kod opcji jest nieprawidłowy!</source>
        <translation>The option code is not valid!</translation>
    </message>
    <message>
        <source>Wprowadzono nieprawidłowe dane!</source>
        <translation>The data entered are not valid!</translation>
    </message>
    <message>
        <source>Dane muszą zawierać co najmniej jeden bajt!</source>
        <translation>The data must contain at least one byte!</translation>
    </message>
    <message>
        <source>Dane mogą zawierać nie więcej, niż 254 bajty!</source>
        <translation>The data may contain no more than 254 bytes!</translation>
    </message>
</context>
<context>
    <name>RawOptionsDialogHelp</name>
    <message>
        <source>Dodatkowe opcje DHCP - Pomoc</source>
        <translation>Additional DHCP options - Help</translation>
    </message>
    <message>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;Opcje DHCP służą do przekazywania w pakietach protokułu DHCP dodatkowych informacji zależnych od funkcjonalności i producenta danego urządzenia klienckiego lub serwera. Opcja składa się z jednobajtowego kodu wskazującego rodzaj opcji oraz ciągu bajtów o zmiennej długości (maksymalnie 255), który zawiera dane dotyczące opcji. Szczegółowy opis dostępnych opcji zawiera dokument &lt;a href=&quot;https://www.rfc-editor.org/rfc/rfc2132&quot;&gt;RFC 2132&lt;/a&gt;.&lt;/p&gt;&lt;p&gt;W oknie dialogowym &amp;quot;Dodatkowe opcje DHCP&amp;quot; kod opcji wprowadzić należy w postaci dziesiętnej. Dane wprowadza się, podając wartości poszczególnych bajtów w postaci dziesiętnej i oddzielając je spacją. Przykładowo, żeby dodać opcję &amp;quot;Time Server Option&amp;quot; z adresem serwera 192.168.1.100, należy w polu &amp;quot;Kod opcji&amp;quot; wpisać wartość &amp;quot;4&amp;quot;, a w polu &amp;quot;Dane&amp;quot; podać &amp;quot;192 168 1 100&amp;quot;.&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;DHCP options carry additional information in DHCP packets, depending on the features and the maker of the client device or the server. An option consists of a one-byte code that tells the kind of option and a string of bytes of variable length (at most 255) that holds the data of the option. The options available are described in detail in the document &lt;a href=&quot;https://www.rfc-editor.org/rfc/rfc2132&quot;&gt;RFC 2132&lt;/a&gt;.&lt;/p&gt;&lt;p&gt;In the &amp;quot;Additional DHCP options&amp;quot; dialog the option code is entered in decimal. The data are entered as the values of the single bytes in decimal, separated by spaces. For example, to add the option &amp;quot;Time Server Option&amp;quot; with the server address 192.168.1.100, enter the value &amp;quot;4&amp;quot; in the &amp;quot;Option code&amp;quot; field and &amp;quot;192 168 1 100&amp;quot; in the &amp;quot;Data&amp;quot; field.&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
</context>
<context>
    <name>ReservationsDialog</name>
    <message>
        <source>Rezerwacje adresów</source>
        <translation>Address reservations</translation>
    </message>
    <message>
        <source>Dodaj...</source>
        <translation>Add...</translation>
    </message>
    <message>
        <source>Usuń</source>
        <translation>Remove</translation>
    </message>
    <message>
        <source>Adres MAC</source>
        <translation>MAC address</translation>
    </message>
    <message>
        <source>Adres IP</source>
        <translation>IP address</translation>
    </message>
    <message>
        <source>Podany adres IP jest nieprawidłowy!</source>
        <translation>The IP address is not valid!</translation>
    </message>
    <message>
        <source>Podany adres MAC jest nieprawidłowy!</source>
        <translation>The MAC address is not valid!</translation>
    </message>
    <message>
        <source>Istnieje już rezerwacja dotycząca podanego adresu MAC!</source>
        <translation>A reservation for this MAC address already exists!</translation>
    </message>
    <message>
        <source>Podany adres IP jest już zarezerwowany!</source>
        <translation>This IP address is already reserved!</translation>
    </message>
    <message>
        <source>Adres IP musi być w tej samej podsieci, co adresy z puli!</source>
        <translation>The IP address must be in the same subnet as the addresses of the pool!</translation>
    </message>
</context>
</TS>
